#ifndef NIVUR_EXPORT_H
#define NIVUR_EXPORT_H

/// Marks what the shared library exports; everything else in it is hidden.
#define NIVUR_EXPORT __attribute__((visibility("default")))

#endif
