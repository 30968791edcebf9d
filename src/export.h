#ifndef NIVUR_EXPORT_H
#define NIVUR_EXPORT_H

/// Marks what the shared library exports; everything else in it is hidden.
#define NIVUR_EXPORT __attribute__((visibility("default")))

/// Marks a variable of a header of which each module has a copy of its own: g++ would make it one
/// that modules share, which keeps them from being unloaded. clang++ does not, and would hide the
/// library's own copies too.
#if defined(__clang__)
#define NIVUR_LOCAL
#else
#define NIVUR_LOCAL __attribute__((visibility("hidden")))
#endif

#endif
