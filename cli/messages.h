// Readable text for the engine's status codes and for system errors that
// arrive as HRESULT_FROM_WIN32.
#pragma once

#include <cstdint>
#include <string>

#include "kzlha/kzlha.h"

namespace kzcli {

// A short lower-case message for any status ("CRC error", "permission
// denied", ...); unknown values read "error 0x8xxxxxxx".
std::string StatusText(HRESULT status);
// The text of a Win32 error code, or null when it has none here.
const char* Win32ErrorText(uint32_t code);

}  // namespace kzcli
