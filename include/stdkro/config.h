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

/// For functions so short that it counts how they are called: not by way of a jump in
/// the caller's linkage table.
#if defined(__GNUC__) && !defined(__clang__) && !defined(_WIN32)
#define KRO_DIRECT_CALL __attribute__((noplt))
#else
#define KRO_DIRECT_CALL
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
