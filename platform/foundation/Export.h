// SPDX-License-Identifier: Apache-2.0

// What the shared library offers to applications.
//
// The library is compiled with every name hidden. What a public header declares and a source file
// defines is marked with WLHID_EXPORT; a test compares these declarations with the library's
// symbols.
#pragma once

#if defined(__GNUC__)
#define WLHID_EXPORT __attribute__((visibility("default")))
/// For a class that is declared inside an exported one, which would otherwise be exported with it.
#define WLHID_NO_EXPORT __attribute__((visibility("hidden")))
#else
#define WLHID_EXPORT
#define WLHID_NO_EXPORT
#endif
