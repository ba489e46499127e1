// Answers the PIN dialog as a user would, while the operation that needs the PIN runs.
#pragma once
#include <windows.h>

#include <functional>

namespace nivra::p11test {

// Runs `operation` on a worker thread; when the PIN dialog appears, types `typed` and presses OK
// (null: presses Cancel). Returns the operation's status; a dialog that never appears fails the
// test.
DWORD AnswerPinDialog(const std::function<DWORD()>& operation, const wchar_t* typed);

}  // namespace nivra::p11test
