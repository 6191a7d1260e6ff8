// Status values and the exception the string routines raise when they
// cannot get memory (the exports turn it back into a status).
#pragma once

#include <kzlha/kzlha.h>

#include "platform/win32_compat.h"

namespace kz {

constexpr HRESULT S_Ok = 0;
constexpr HRESULT E_Notimpl = KZ_E_NOTIMPL;
constexpr HRESULT E_Abort = KZ_E_ABORT;
constexpr HRESULT E_Fail = KZ_E_FAIL;
constexpr HRESULT E_Handle = KZ_E_HANDLE;
constexpr HRESULT E_Outofmemory = KZ_E_OUTOFMEMORY;
constexpr HRESULT E_Crc = KZ_E_CRC;
constexpr HRESULT E_Invalidarg = KZ_E_INVALIDARG;
constexpr HRESULT ARC_E_NOTSUPPORTED = KZ_ARC_E_NOTSUPPORTED;
constexpr HRESULT ARC_E_PARTIAL = KZ_ARC_E_PARTIAL;
constexpr HRESULT ARC_E_EMPTYARCHIVE = KZ_ARC_E_EMPTYARCHIVE;
constexpr HRESULT ARC_E_NOARCHIVE = KZ_ARC_E_NOARCHIVE;
constexpr HRESULT ARC_E_UNKNOWNMETHOD = KZ_ARC_E_UNKNOWNMETHOD;
constexpr HRESULT ARC_E_BADTABLE = KZ_ARC_E_BADTABLE;
constexpr HRESULT ARC_E_UNSAFEPATH = KZ_ARC_E_UNSAFEPATH;
constexpr HRESULT ARC_E_TOOLARGE = KZ_ARC_E_TOOLARGE;
constexpr HRESULT ARC_E_BADHEADER = KZ_ARC_E_BADHEADER;

constexpr HRESULT HresultFromWin32(uint32_t code) {
  return code == 0 ? 0 : static_cast<HRESULT>((code & 0xFFFFu) | 0x80070000u);
}

// Thrown by the string routines; carries E_OUTOFMEMORY (or E_INVALIDARG
// for a length that overflows).
struct KzStatusError {
  HRESULT Status;
};

}  // namespace kz
