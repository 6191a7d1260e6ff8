#include "enginelib/status_text.h"

#include <kzlha/kzlha.h>

namespace kz {

const wchar_t* StatusText(HRESULT hr) {
  switch (static_cast<uint32_t>(hr)) {
    case 0: return L"OK";
    case 0x80004001u: return L"not implemented";
    case 0x80004004u: return L"stopped by request";
    case 0x80004005u: return L"unspecified failure";
    case 0x80070006u: return L"invalid handle";
    case 0x8007000Eu: return L"out of memory";
    case 0x80070017u: return L"CRC error: data is damaged";
    case 0x80070057u: return L"invalid argument";
    case 0x80040200u: return L"operation not supported for LHA archives";
    case 0x80040203u: return L"archive written only in part";
    case 0x80040205u: return L"archive holds no members";
    case 0x80040284u: return L"not an LHA archive";
    case 0x80040290u: return L"unknown compression method";
    case 0x80040294u: return L"damaged Huffman table in packed data";
    case 0x800402A0u: return L"unsafe path refused";
    case 0x800402A1u: return L"file too large for an LHA member (4 GiB or more)";
    case 0x800402A2u: return L"damaged member header";
    case 0x80070002u: return L"no such file or directory";
    case 0x80070003u: return L"path not found";
    case 0x80070005u: return L"access denied";
    case 0x80070013u: return L"media is write protected";
    case 0x80070020u: return L"file is in use";
    case 0x80070026u: return L"unexpected end of file";
    case 0x80070027u:
    case 0x80070070u: return L"disk full";
    case 0x80070050u: return L"file exists";
    case 0x8007007Bu: return L"invalid file name";
    case 0x800700DFu: return L"file too large";
    case 0x80070781u: return L"too many levels of symbolic links";
    default: return L"system error";
  }
}

}  // namespace kz
