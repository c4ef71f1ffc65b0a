// Interned strings and the cells that they share. The database itself is
// defined with the library's other process-wide data (foundation/frame.cpp).
#include "dsunique.h"

dsStringCell::dsStringCell(char const* text) : refCount(0), string(text) {}

dsStringCell::~dsStringCell() {}

void dsStringCell::Lock() {
  ++refCount;
}

char const* dsStringCell::GetString() const {
  return string;
}

void dsStringCell::AddToDatabase(char const* text, dsStringCell*& cell) {
  if (text == nullptr) text = "";
  unsigned int index;
  if (database.FindIndex(text, index)) {
    cell = database.GetByIndex(index);
  } else {
    cell = new dsStringCell(text);
    // Keyed by the cell's own copy, which lives exactly as long as the entry.
    database.Add(cell->GetString(), cell);
  }
  cell->Lock();
}

void dsStringCell::Release(dsStringCell*& cell) {
  if (--cell->refCount != 0) return;
  unsigned int index;
  if (database.FindIndex(cell->GetString(), index)) database.RemoveByIndex(index);
  delete cell;
  cell = nullptr;
}

dsUniqueString::dsUniqueString(char const* text) : cell(nullptr) {
  dsStringCell::AddToDatabase(text, cell);
}

dsUniqueString::dsUniqueString(dsUniqueString const& other) : dsBaseString(other), cell(other.cell) {
  cell->Lock();
}

dsUniqueString& dsUniqueString::operator=(dsUniqueString const& other) {
  other.cell->Lock();  // first, so that assigning an object to itself keeps its cell
  dsStringCell::Release(cell);
  cell = other.cell;
  return *this;
}

dsUniqueString::~dsUniqueString() {
  dsStringCell::Release(cell);
}

dsUniqueString::operator char const*() const {
  return cell->GetString();
}

char const* dsUniqueString::GiveString() const {
  return cell->GetString();
}
