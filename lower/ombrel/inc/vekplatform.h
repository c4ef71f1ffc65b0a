// The one header that knows which platform it is on.
//
// It picks the socket types that public signatures use (fd_set, timeval,
// sockaddr, addrinfo) and defines the export macros of the three libraries. Every other header of the
// project is free of platform conditionals.
#ifndef VEKPLATFORM_H
#define VEKPLATFORM_H

#if defined(_WIN32)
#  include <winsock2.h>
#  include <ws2tcpip.h>
#  define VEK_EXPORT __declspec(dllexport)
#  define VEK_IMPORT __declspec(dllimport)
// Windows exports a template instantiation through its own declaration only.
#  define VEK_TEMPLATE_VISIBLE
#  define VEK_INSTANCE_EXPORTS 1
#  define VEK_NATIVE_SEPARATOR '\\'
// windows.h (through winsock2.h) brings the file constants and WIN32_FIND_DATAA.
#  define VEK_HAVE_WIN32_FILE_TYPES 1
#  define VEK_FAST_THREAD_LOCAL thread_local
// vek_printf formats as ombrel's C++ sees printf: mingw-w64's own C99 one,
// not msvcrt's.
#  if defined(__MINGW32__)
#    define VEK_PRINTF_FORMAT gnu_printf
#  else
#    define VEK_PRINTF_FORMAT printf
#  endif
#else
#  include <netdb.h>
#  include <sys/select.h>
#  include <sys/socket.h>
#  include <sys/time.h>
#  define VEK_EXPORT __attribute__((visibility("default")))
#  define VEK_IMPORT __attribute__((visibility("default")))
// ELF needs the class template itself visible, or the members of its explicit
// instantiations stay hidden whatever the instantiation says.
#  define VEK_TEMPLATE_VISIBLE __attribute__((visibility("default")))
#  define VEK_INSTANCE_EXPORTS 0
#  define VEK_NATIVE_SEPARATOR '/'
// A thread-local read on hot paths: one load from the thread pointer, no
// look-up call (the libraries are loaded with the program or early enough
// for the static TLS room that the C library keeps).
#  define VEK_FAST_THREAD_LOCAL __attribute__((tls_model("initial-exec"))) thread_local
#  define VEK_PRINTF_FORMAT printf
#endif

#if defined(OMBREL_BUILDING)
#  define OMBREL_API VEK_EXPORT
#else
#  define OMBREL_API VEK_IMPORT
#endif

// VEK_STATIC_UPPER: tarnlet and quillon are static libraries (a port in
// progress, cmake/QuillonWindows.cmake), linked without import or export.
#if defined(VEK_STATIC_UPPER)
#  define TARNLET_API
#elif defined(TARNLET_BUILDING)
#  define TARNLET_API VEK_EXPORT
#else
#  define TARNLET_API VEK_IMPORT
#endif

#if defined(VEK_STATIC_UPPER)
#  define QUILLON_API
#elif defined(QUILLON_BUILDING)
#  define QUILLON_API VEK_EXPORT
#else
#  define QUILLON_API VEK_IMPORT
#endif

// Marks an explicit template instantiation of quillon (declaration and
// definition). On ELF the visible class template already exports it.
#if VEK_INSTANCE_EXPORTS
#  define QUILLON_INSTANCE_API QUILLON_API
#else
#  define QUILLON_INSTANCE_API
#endif

#endif
