/// \file
/// The one header that knows which platform it is on.
///
/// It picks the socket types that public signatures use and defines the
/// export macros of the three libraries. It is the only installed header that
/// includes a header of the operating system, and with the folders lower/*/posix
/// and lower/*/win32 the only place that tests the platform. Each include
/// below names the public signatures that need it.
#ifndef VEKPLATFORM_H
#define VEKPLATFORM_H

#if defined(_WIN32)
// windows.h (which winsock2.h brings) without its rarely used parts, and
// without the min and max macros that would break std::min in a program.
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  ifndef NOMINMAX
#    define NOMINMAX
#  endif
// A set of 64 sockets, the default, is small for a server; the library and
// every program built on it must agree on the size of an fd_set.
#  ifndef FD_SETSIZE
#    define FD_SETSIZE 1024
#  endif
#  include <winsock2.h>  // fd_set, timeval, sockaddr: fds_zero, fds_set, fds_select,
                         // vek_bind, vek_accept, vek_connect, vek_getsockname, ...
#  include <ws2tcpip.h>  // addrinfo: vek_get_nodeaddrinfo, vek_free_nodeaddrinfo
static_assert(FD_SETSIZE == 1024,
              "include vekplatform.h (or quillon.h) before <winsock2.h>, or define FD_SETSIZE "
              "as 1024: the library's fd_set holds 1024 sockets");
#  define VEK_EXPORT __declspec(dllexport)
#  define VEK_IMPORT __declspec(dllimport)
// Windows exports a template instantiation through its own declaration only.
#  define VEK_TEMPLATE_VISIBLE
#  define VEK_INSTANCE_EXPORTS 1
#  define VEK_NATIVE_SEPARATOR '\\'
#  define VEK_FAST_THREAD_LOCAL thread_local
// vek_printf formats as ombrel's C++ sees printf: mingw-w64's own C99 one,
// not msvcrt's.
#  if defined(__MINGW32__)
#    define VEK_PRINTF_FORMAT gnu_printf
#  else
#    define VEK_PRINTF_FORMAT printf
#  endif
#else
#  include <netdb.h>       // addrinfo: vek_get_nodeaddrinfo, vek_free_nodeaddrinfo
#  include <sys/select.h>  // fd_set: fds_zero, fds_set, fds_select
#  include <sys/socket.h>  // sockaddr: vek_bind, vek_accept, vek_connect, vek_getsockname, ...
#  include <sys/time.h>    // timeval: fds_select
/// Marks a declaration that a library exports while it is built
/// (dllexport on Windows).
#  define VEK_EXPORT __attribute__((visibility("default")))
/// Marks a declaration that a program takes from a library (dllimport on
/// Windows).
#  define VEK_IMPORT __attribute__((visibility("default")))
/// Marks a class template whose explicit instantiations a library exports;
/// empty on Windows.
/// ELF needs the class template itself visible, or the members of its explicit
/// instantiations stay hidden whatever the instantiation says.
#  define VEK_TEMPLATE_VISIBLE __attribute__((visibility("default")))
/// 1 where an explicit instantiation is exported through its own declaration
/// (Windows), else 0.
#  define VEK_INSTANCE_EXPORTS 0
/// The separator of the platform's own paths: '/', or '\\' on Windows.
#  define VEK_NATIVE_SEPARATOR '/'
/// The storage of a thread-local variable that hot paths read; plain
/// thread_local on Windows.
/// A thread-local read on hot paths: one load from the thread pointer, no
/// look-up call (the libraries are loaded with the program or early enough
/// for the static TLS room that the C library keeps).
#  define VEK_FAST_THREAD_LOCAL __attribute__((tls_model("initial-exec"))) thread_local
/// The format archetype that vek_printf's arguments are checked against: the
/// printf that ombrel calls (mingw-w64's C99 one, gnu_printf, on Windows).
#  define VEK_PRINTF_FORMAT printf
#endif

/// \def OMBREL_API
/// Marks what ombrel exports: VEK_EXPORT while ombrel is built
/// (OMBREL_BUILDING), VEK_IMPORT elsewhere.
#if defined(OMBREL_BUILDING)
#  define OMBREL_API VEK_EXPORT
#else
#  define OMBREL_API VEK_IMPORT
#endif

/// \def TARNLET_API
/// Marks what tarnlet exports: VEK_EXPORT while tarnlet is built
/// (TARNLET_BUILDING), VEK_IMPORT elsewhere.
#if defined(TARNLET_BUILDING)
#  define TARNLET_API VEK_EXPORT
#else
#  define TARNLET_API VEK_IMPORT
#endif

/// \def QUILLON_API
/// Marks what quillon exports: VEK_EXPORT while quillon is built
/// (QUILLON_BUILDING), VEK_IMPORT elsewhere.
#if defined(QUILLON_BUILDING)
#  define QUILLON_API VEK_EXPORT
#else
#  define QUILLON_API VEK_IMPORT
#endif

/// \def QUILLON_INSTANCE_API
/// Marks the declaration of an explicit template instantiation of quillon
/// (the definition goes without it). On ELF the visible class template
/// already exports it.
#if VEK_INSTANCE_EXPORTS
#  define QUILLON_INSTANCE_API QUILLON_API
#else
#  define QUILLON_INSTANCE_API
#endif

/// \def QUILLON_INLINE_VIRTUAL
/// Begins the definition, in a header, of a virtual member of a class template
/// whose instantiations quillon exports. Elsewhere it is inline, so a caller
/// that knows the class runs it in place. A Windows DLL exports no inline
/// member, yet a program's vtables take the virtual members from the DLL: there
/// it is an ordinary member, exported with its instantiation.
#if VEK_INSTANCE_EXPORTS
#  define QUILLON_INLINE_VIRTUAL
#else
#  define QUILLON_INLINE_VIRTUAL inline
#endif

#endif
