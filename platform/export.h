#pragma once

/// Marks a declaration as part of a shared library's interface.
/// Everything is compiled with hidden visibility; what carries this mark stays visible.
#define VLM_EXPORT __attribute__((visibility("default")))

/// Keeps a member of a visible class inside its library.
#define VLM_LOCAL __attribute__((visibility("hidden")))

/// Marks a printf-like operation: `text` and `first` count arguments from 1, `this` included.
#define VLM_PRINTF_LIKE(text, first) __attribute__((format(printf, text, first)))
