#ifndef NIVUR_EXPORT_H
#define NIVUR_EXPORT_H

/// Marks what the shared library exports; everything else in it is hidden.
#define NIVUR_EXPORT __attribute__((visibility("default")))

/// Marks a variable of a header of which each module has a copy of its own: one that modules share
/// would keep them from being unloaded.
#define NIVUR_LOCAL __attribute__((visibility("hidden")))

#endif
