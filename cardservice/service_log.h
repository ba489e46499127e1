// The service's log: one line per event on standard error, with the time; lines from several
// connection threads never interleave. With tracing on, frames are also shown byte by byte as
// they travel (encrypted bodies stay encrypted: the log never shows a PIN or a session secret).
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::cardservice {

void SetTracing(bool on);
bool Tracing();

// printf-style; the line end is added.
void LogLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

// With tracing on: one line "<prefix> <hex bytes>" (nothing otherwise).
void TraceBytes(const char* prefix, const uint8_t* data, size_t length);

}  // namespace nivra::cardservice
