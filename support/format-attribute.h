// The compiler's check of printf-style calls, as a macro, so that a compiler without the attribute
// can still compile the headers.
#ifndef QUINTRAL_SUPPORT_FORMAT_ATTRIBUTE_H
#define QUINTRAL_SUPPORT_FORMAT_ATTRIBUTE_H

// QUINTRAL_PRINTF(text, first): argument number `text` (counted from 1) is a printf format, and its
// values start at argument `first`; `first` is 0 for a function that takes a std::va_list.
#if defined(__GNUC__)
#define QUINTRAL_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define QUINTRAL_PRINTF(text, first)
#endif

#endif
