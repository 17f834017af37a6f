#pragma once

/// @file
/// What marks the public names of the shared libraries.

/// Marks what a shared library of this project offers to programs; all else stays hidden.
#define KELDA_EXPORT __attribute__((visibility("default")))

/// Takes a private member of an exported class back from what is offered.
#define KELDA_LOCAL __attribute__((visibility("hidden")))
