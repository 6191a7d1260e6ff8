#include "enginelib/codec_base.h"

KzDecompressor::~KzDecompressor() = default;
KzCompressor::~KzCompressor() = default;
// The hooks are the library's extension points; the LHA codecs do not use them.
void KzCompressor::Hook1() {}
void KzCompressor::Hook2() {}
void KzCompressor::Hook3() {}
void KzCompressor::Hook4() {}
