/// \file
/// Symbol visibility. The library is built with hidden visibility; what carries this mark is its
/// binary interface.
#pragma once

/// Marks what belongs to the library's binary interface.
#if defined(_WIN32)
#define KESTRIN_EXPORT
#else
#define KESTRIN_EXPORT __attribute__((visibility("default")))
#endif
