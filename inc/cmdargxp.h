/// \file
/// quillon argument files: the option `-argfile <file>` on a command line
/// stands for the lines of that file, one argument a line.
///
/// An argument file has no comments, quoting or continuation: each line is one
/// argument, blanks and quotes included, and an empty line is an empty
/// argument. A line ends in a line feed, or a carriage return and a line feed,
/// on every host, so a file written on Windows reads the same on Linux. A last
/// line without a line end is not taken. A line that begins with $NAME, the
/// name ending at \ / | blank or tab, has the value of the environment
/// variable NAME in its place, if it is set. "-argfile" inside a file is an
/// ordinary argument: files do not nest.
///
/// Neither function takes a lock; they touch nothing shared but the standard
/// streams and the environment, so they may run on any thread while no other
/// thread changes the environment.
#ifndef CMDARGXP_H
#define CMDARGXP_H

#include "quillonbase.h"

/// Replaces argc and argv by a new pair in which every `-argfile <file>` is
/// replaced by the lines of the file; every string of the new pair is a copy
/// of its own. The old pair is left as it was, and stays the caller's.
///
/// The new array and each of its strings are new[] blocks that belong to the
/// caller, who gives them back through FreeCommandArguments(). With echo, and
/// if at least one file was read, the new arguments go to standard output on
/// one line, separated by blanks.
///
/// There is no failure result: a "-argfile" with nothing behind it ("Illegal
/// usage of -argfile"), or a file that cannot be opened or read to its end, a
/// directory among them (`File <name> cannot be opened.`), ends the process
/// through vekAbort() after that line went to standard error.
QUILLON_API void ExpandCommandArguments(int& argc, char**& argv, bool echo);
/// Releases a pair made by ExpandCommandArguments() and sets argv to null.
/// \param argc the count that ExpandCommandArguments() set.
QUILLON_API void FreeCommandArguments(int argc, char**& argv);

#endif
