#pragma once

/// Marks a declaration as part of a shared library's interface.
/// Everything is compiled with hidden visibility; what carries this mark stays visible.
#define VLM_EXPORT __attribute__((visibility("default")))

/// Marks a printf-like operation: `text` and `first` count arguments from 1, `this` included.
#define VLM_PRINTF_LIKE(text, first) __attribute__((format(printf, text, first)))
