#ifndef NIVUR_EXPORT_H
#define NIVUR_EXPORT_H

/// Marks what the shared library exports; everything else in it is hidden.
#define NIVUR_EXPORT __attribute__((visibility("default")))

/// Gives each module its own copy of a variable that a header defines. Without it, g++ makes the
/// symbol unique in the process, and a module that has such a symbol cannot be unloaded. clang++
/// has no unique symbols, and the attribute would hide the library's copy too.
#if defined(__clang__)
#define NIVUR_LOCAL
#else
#define NIVUR_LOCAL __attribute__((visibility("hidden")))
#endif

#endif
