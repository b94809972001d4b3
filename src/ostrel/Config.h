// Build configuration shared by every Ostrel header: export macro and calling convention.
#pragma once

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(OSTREL_STATIC)
#define OSTREL_API
#elif defined(OSTREL_BUILDING)
#define OSTREL_API __declspec(dllexport)
#else
#define OSTREL_API __declspec(dllimport)
#endif
#else
#if defined(OSTREL_STATIC)
#define OSTREL_API
#else
#define OSTREL_API __attribute__((visibility("default")))
#endif
#endif

// Interface methods use the system calling convention of 32-bit Windows so that
// modules built by other compilers can call through the same slots.
#if defined(_WIN32) && !defined(_WIN64)
#define OSTREL_STDCALL __stdcall
#else
#define OSTREL_STDCALL
#endif

#define OSTREL_VERSION_MAJOR 0
#define OSTREL_VERSION_MINOR 1
#define OSTREL_VERSION_PATCH 0
#define OSTREL_VERSION_STRING "0.1.0"
