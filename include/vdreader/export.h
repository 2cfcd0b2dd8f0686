/*
 * How the names of the library cross its boundary, for C99 and C++20 alike.
 *
 * VDREADER_API marks a C function, VDREADER_MEMBER a member of an exported class.  On Windows the C
 * functions leave the library through its module definition file; elsewhere the version script
 * decides and the attribute only lifts the names out of the hidden default.
 */
#ifndef VDREADER_EXPORT_H
#define VDREADER_EXPORT_H

#if defined(_WIN32) && defined(VDREADER_BUILDING)
#  define VDREADER_API
#  define VDREADER_MEMBER __declspec(dllexport)
#elif defined(_WIN32)
#  define VDREADER_API __declspec(dllimport)
#  define VDREADER_MEMBER __declspec(dllimport)
#else
#  define VDREADER_API __attribute__((visibility("default")))
#  define VDREADER_MEMBER __attribute__((visibility("default")))
#endif

/* Defined where the name `error` is linked from the library.  The linker of a host elsewhere finds
 * the C library's function of that name; log.h says how ours is called there. */
#if defined(VDREADER_BUILDING) || (defined(_WIN32) && !defined(VDREADER_NO_ERROR_NAME))
#  define VDREADER_LINKS_ERROR
#endif

#if defined(__GNUC__) || defined(__clang__)
#  define VDREADER_NORETURN __attribute__((noreturn))
#elif defined(_MSC_VER)
#  define VDREADER_NORETURN __declspec(noreturn)
#else
#  define VDREADER_NORETURN
#endif

#endif
