// Readable text for the statuses the library records in the log.
#pragma once

#include <kzlha/kzlha.h>

#include "platform/win32_compat.h"

namespace kz {
// A static string; system errors (0x8007xxxx) are described by their code.
KZLIB_API const wchar_t* StatusText(HRESULT hr);
}  // namespace kz
