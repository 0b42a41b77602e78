#pragma once

// The library is built with hidden symbol visibility; ORVANE_API marks the
// classes and functions that form its public binary interface.
#if defined(__GNUC__)
#define ORVANE_API __attribute__((visibility("default")))
#else
#define ORVANE_API
#endif
