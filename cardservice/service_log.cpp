#include "cardservice/service_log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include <sys/time.h>

namespace nivra::cardservice {

namespace {
std::mutex g_logMutex;
bool g_tracing = false;

std::string Timestamp() {
  timeval now;
  gettimeofday(&now, nullptr);
  tm parts;
  gmtime_r(&now.tv_sec, &parts);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03ld", parts.tm_hour, parts.tm_min,
                parts.tm_sec, static_cast<long>(now.tv_usec / 1000));
  return text;
}
}  // namespace

void SetTracing(bool on) { g_tracing = on; }
bool Tracing() { return g_tracing; }

void LogLine(const char* format, ...) {
  char text[1024];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  std::lock_guard<std::mutex> guard(g_logMutex);
  std::fprintf(stderr, "%s %s\n", Timestamp().c_str(), text);
  std::fflush(stderr);
}

void TraceBytes(const char* prefix, const uint8_t* data, size_t length) {
  if (!g_tracing) return;
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(length * 2);
  for (size_t i = 0; i < length; ++i) {
    hex.push_back(kDigits[data[i] >> 4]);
    hex.push_back(kDigits[data[i] & 0xF]);
  }
  std::lock_guard<std::mutex> guard(g_logMutex);
  std::fprintf(stderr, "%s %s %s\n", Timestamp().c_str(), prefix, hex.c_str());
  std::fflush(stderr);
}

}  // namespace nivra::cardservice
