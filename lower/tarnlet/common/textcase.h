// tarnlet, inside: the platform's rule for comparing two characters of a
// name. Each platform folder defines it (case counts on POSIX hosts).
#ifndef TARNLET_TEXTCASE_H
#define TARNLET_TEXTCASE_H

bool vekSameNameChar(wchar_t a, wchar_t b);

#endif
