#pragma once

/// The libraries are built with hidden symbols; what a public header declares with this macro is exported.
#define FIRAIM_EXPORT __attribute__((visibility("default")))

/// For a member that its exported class keeps to itself; and for each constant of such a class, as the loader never
/// unloads a library with an exported one.
#define FIRAIM_HIDDEN __attribute__((visibility("hidden")))
