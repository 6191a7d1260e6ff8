// Base classes of the engine's codecs: each holds its owning archiver, through
// which it reaches the streams, the transfer record and the status.
#pragma once

#include "platform/win32_compat.h"

class KzArchiver;

class KZLIB_API KzDecompressor {
 public:
  explicit KzDecompressor(KzArchiver* owner) : Owner(owner) {}
  virtual ~KzDecompressor();
  KzDecompressor(const KzDecompressor&) = delete;
  KzDecompressor& operator=(const KzDecompressor&) = delete;

 protected:
  KzArchiver* Owner;
};

class KZLIB_API KzCompressor {
 public:
  explicit KzCompressor(KzArchiver* owner) : Owner(owner) {}
  virtual ~KzCompressor();
  KzCompressor(const KzCompressor&) = delete;
  KzCompressor& operator=(const KzCompressor&) = delete;
  virtual void Hook1();
  virtual void Hook2();
  virtual void Hook3();
  virtual void Hook4();

 protected:
  KzArchiver* Owner;
};
