#ifndef NIVUR_EXPORT_H
#define NIVUR_EXPORT_H

/// Marks what the shared library exports; everything else in it is hidden.
#define NIVUR_EXPORT __attribute__((visibility("default")))

/// Marks a variable in a header of which each module is to have its own copy. Otherwise g++ makes
/// it a symbol that is unique in the process, and a module that has one cannot be unloaded. clang++
/// has no such symbols, and with the attribute would hide the copies of the library too.
#if defined(__clang__)
#define NIVUR_LOCAL
#else
#define NIVUR_LOCAL __attribute__((visibility("hidden")))
#endif

#endif
