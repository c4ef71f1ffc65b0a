/// \file
/// quillon collections: interned strings.
///
/// A dsUniqueString holds text that exists once per process: every object with
/// the same bytes shares one dsStringCell, so equality is one comparison of
/// pointers and the text is stored once. The cells live in a process-wide
/// database, a dsNonOwnerStringMap keyed by each cell's own text, built when
/// the library is loaded and released when it is unloaded. A cell counts its
/// users and leaves the database with the last one.
///
/// The database and the counts have no lock: making, copying and destroying
/// unique strings (and Lock and Release) are for one thread at a time, and a
/// program that does them on several threads serialises them itself. Reading
/// and comparing unique strings that stay alive needs no lock. Every unique
/// string must be gone before the library is unloaded; the database releases
/// only its own block then and leaves any cell still in use alone.
#ifndef DSUNIQUE_H
#define DSUNIQUE_H

#include "dsortmap.h"
#include "dsstring.h"

/// The shared cell of an interned text: the text once, and how many users
/// it has. Cells are made and deleted by AddToDatabase and Release; a
/// dsUniqueString is the usual way to hold one.
/// Unguarded, as the database: one thread at a time for all cells.
class QUILLON_API dsStringCell {
 public:
  /// refCount 0 and a copy of text; not entered in the database.
  explicit dsStringCell(char const* text);
  /// Does not touch the database.
  ~dsStringCell();
  ///@{
  /// Not copyable: a cell is its text's identity.
  dsStringCell(dsStringCell const&) = delete;
  dsStringCell& operator=(dsStringCell const&) = delete;
  ///@}

  /// One more user. Nothing is locked in the sense of mutual exclusion.
  void Lock();
  /// The cell's text, owned by the cell. Stays valid, and at the same
  /// address, for the life of the cell.
  char const* GetString() const;

  /// Sets cell to the cell of text (null reads as empty), making it if need
  /// be, and counts one more user. A new cell is a heap object that belongs
  /// to the database until Release deletes it.
  static void AddToDatabase(char const* text, dsStringCell*& cell);
  /// One user less. The last one takes the cell out of the database, deletes
  /// it and sets cell to null; otherwise cell is left as it was.
  static void Release(dsStringCell*& cell);

 private:
  unsigned int refCount;
  dsString string;

  // Every cell in use, keyed by its own text; defined with the library's
  // other process-wide data.
  static dsNonOwnerStringMap<dsStringCell*> database;
};

/// An interned string: one user of the cell of its text. Making, copying,
/// assigning and destroying one changes the process-wide database and must
/// not run on two threads at once.
class QUILLON_API dsUniqueString : public dsBaseString {
 public:
  dsUniqueString(char const* text);  ///< The cell of text, made if need be; null reads as empty.
  /// A copy shares the cell and counts itself on it.
  dsUniqueString(dsUniqueString const& other);
  /// Takes other's cell (counted first, so assigning an object to itself is
  /// harmless) and releases its own.
  dsUniqueString& operator=(dsUniqueString const& other);
  /// Releases the cell; the last user deletes it.
  ~dsUniqueString() override;

  /// The cell's text: one pointer for all objects with the same text, never
  /// null, owned by the cell and valid while any of them lives.
  operator char const*() const override;
  /// The same pointer as the conversion to char const*.
  char const* GiveString() const;

  ///@{
  /// Identity of the cells: one pointer comparison, whatever the length.
  bool operator==(dsUniqueString const& other) const { return cell == other.cell; }
  bool operator!=(dsUniqueString const& other) const { return cell != other.cell; }
  ///@}

 private:
  dsStringCell* cell;
};

#endif
