// Text conversions for names and PINs that go on the card service wire: UTF-16, UTF-8 and the
// system's ANSI code page. New strings are zero-filled heap blocks; with a list they belong to
// it, otherwise the caller frees them with FreeZeroed(text, strlen(text) + 1).
#pragma once
#include <cstddef>

#include "service/request_buffers.h"

namespace nivra::service {

// A new UTF-8 copy of text; null for a null text or no memory.
char* WideToUtf8(const wchar_t* text, RequestBuffers* list);

// Converts UTF-8 text into out (capacity *capacity characters). When the text with its
// terminator needs more than the capacity, or out is null, *capacity receives the count needed
// and 0 is returned. Otherwise the conversion is written, a terminator is added only when the
// capacity exceeds the converted count, *capacity = the converted count, and it is returned.
// A null text or capacity returns 0 and changes nothing.
size_t Utf8ToWide(const char* text, wchar_t* out, size_t* capacity);

// A new UTF-8 copy of text in the ANSI code page.
char* AnsiToUtf8(const char* text, RequestBuffers* list);

// A new ANSI copy of UTF-8 text; *length (optional) = its byte count without the terminator.
char* Utf8ToAnsi(const char* text, size_t* length, RequestBuffers* list);

}  // namespace nivra::service
