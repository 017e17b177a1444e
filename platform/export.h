#pragma once

/// Marks a declaration as part of a shared library's interface.
/// Everything is compiled with hidden visibility; what carries this mark stays visible.
#define VLM_EXPORT __attribute__((visibility("default")))

/// Keeps a member of a visible class inside its library.
#define VLM_LOCAL __attribute__((visibility("hidden")))

/// Marks a printf-like operation: positions of the format and of its first value, counted from 1, `this` included.
#define VLM_PRINTF_LIKE(formatAt, firstAt) __attribute__((format(printf, formatAt, firstAt)))
