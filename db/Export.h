#pragma once

/// Exports a declaration of a public header; the libraries are built with hidden symbols.
#define FIRAIM_EXPORT __attribute__((visibility("default")))

/// Hides a private member of an exported class. Also hides each constant of such a class: the loader never unloads a
/// library that exports one.
#define FIRAIM_HIDDEN __attribute__((visibility("hidden")))
