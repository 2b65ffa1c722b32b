// The export macro, and nothing else.
//
// Programs that use the shared library define nothing. STDKRO_BUILD is defined
// while the library itself is compiled, STDKRO_STATIC by programs that link its
// objects directly.
#ifndef STDKRO_CONFIG_H
#define STDKRO_CONFIG_H

#if defined(_WIN32)
#if defined(STDKRO_BUILD)
#define KRO_API __declspec(dllexport)
#elif defined(STDKRO_STATIC)
#define KRO_API
#else
#define KRO_API __declspec(dllimport)
#endif
#else
#define KRO_API __attribute__((visibility("default")))
#endif

/// Lets the compiler compare a printf-style format with its arguments.
/// `text` and `first` are 1-based argument positions; members count `this`.
#if defined(__GNUC__)
#if defined(__MINGW32__)
#define KRO_PRINTF(text, first) __attribute__((format(gnu_printf, text, first)))
#else
#define KRO_PRINTF(text, first) __attribute__((format(printf, text, first)))
#endif
#else
#define KRO_PRINTF(text, first)
#endif

#endif
