// quillon collections: interned strings.
//
// A dsUniqueString holds text that exists once per process: every object with
// the same bytes shares one dsStringCell, so equality is one comparison of
// pointers and the text is stored once. The cells live in a process-wide
// database, a dsNonOwnerStringMap keyed by each cell's own text, built when
// the library is loaded and released when it is unloaded. A cell counts its
// users and leaves the database with the last one.
//
// The database and the counts have no lock: making, copying and destroying
// unique strings (and Lock and Release) are for one thread at a time, and a
// program that does them on several threads serialises them itself. Reading
// and comparing unique strings that stay alive needs no lock. Every unique
// string must be gone before the library is unloaded; the database releases
// only its own block then and leaves any cell still in use alone.
#ifndef DSUNIQUE_H
#define DSUNIQUE_H

#include "dsortmap.h"
#include "dsstring.h"

class QUILLON_API dsStringCell {
 public:
  // refCount 0 and a copy of text.
  explicit dsStringCell(char const* text);
  // Does not touch the database.
  ~dsStringCell();
  dsStringCell(dsStringCell const&) = delete;
  dsStringCell& operator=(dsStringCell const&) = delete;

  // One more user. Nothing is locked in the sense of mutual exclusion.
  void Lock();
  // Stays valid, and at the same address, for the life of the cell.
  char const* GetString() const;

  // Sets cell to the cell of text (null reads as empty), making it if need
  // be, and counts one more user.
  static void AddToDatabase(char const* text, dsStringCell*& cell);
  // One user less. The last one takes the cell out of the database, deletes
  // it and sets cell to null; otherwise cell is left as it was.
  static void Release(dsStringCell*& cell);

 private:
  unsigned int refCount;
  dsString string;

  // Every cell in use, keyed by its own text; defined with the library's
  // other process-wide data.
  static dsNonOwnerStringMap<dsStringCell*> database;
};

class QUILLON_API dsUniqueString : public dsBaseString {
 public:
  dsUniqueString(char const* text);  // null reads as empty
  // A copy shares the cell and counts itself on it.
  dsUniqueString(dsUniqueString const& other);
  dsUniqueString& operator=(dsUniqueString const& other);
  ~dsUniqueString() override;

  // The cell's text: one pointer for all objects with the same text.
  operator char const*() const override;
  char const* GiveString() const;

  // Identity of the cells: one pointer comparison, whatever the length.
  bool operator==(dsUniqueString const& other) const { return cell == other.cell; }
  bool operator!=(dsUniqueString const& other) const { return cell != other.cell; }

 private:
  dsStringCell* cell;
};

#endif
