// The archiver object: construction order, the item-list checks of the
// extract, compress and delete slots, the unsupported slots, the constant
// hooks and the option step.
#include "archiver/lha_archiver.h"

KzLhaArchiver::KzLhaArchiver()
    : KzArchiver(),
      Lha1Decoder(this),
      Lha5Decoder(this),
      Lha6Decoder(this),
      Lha7Decoder(this),
      Lha5Encoder(this),
      Lha6Encoder(this),
      Lha7Encoder(this) {}

// Members are destroyed in reverse order (encoders, then decoders), then the
// base. The work buffers belong to FreeDecodeBuffers/FreeEncodeBuffers.
KzLhaArchiver::~KzLhaArchiver() = default;

namespace {

bool IsEmptyList(const KzList* items) { return items == nullptr || items->Count == 0; }

}  // namespace

HRESULT KzLhaArchiver::ExtractFiles(const KzList* items, intptr_t selectionArgument,
                                    const wchar_t* destDir, uint32_t flags) {
  if (IsEmptyList(items)) return SetError(kz::E_Invalidarg, nullptr);
  return KzArchiver::ExtractFiles(items, selectionArgument, destDir, flags);
}

HRESULT KzLhaArchiver::TestArchive(const KzList* items, intptr_t selectionArgument) {
  return KzArchiver::TestArchive(items, selectionArgument);
}

HRESULT KzLhaArchiver::CompressFiles(KzList* items, const wchar_t* baseDir, uint32_t flags) {
  if (IsEmptyList(items)) return SetError(kz::E_Invalidarg, nullptr);
  return KzArchiver::CompressFiles(items, baseDir, flags);
}

HRESULT KzLhaArchiver::DeleteFiles(const KzList* items, intptr_t selectionArgument) {
  if (IsEmptyList(items)) return SetError(kz::E_Invalidarg, nullptr);
  return KzArchiver::DeleteFiles(items, selectionArgument);
}

// One body for slots 9 to 17: the arguments are not looked at.
#define KZ_UNSUPPORTED(Slot)                                             \
  HRESULT KzLhaArchiver::Slot(intptr_t, intptr_t, intptr_t) {            \
    return SetError(kz::ARC_E_NOTSUPPORTED, ArchivePath.c_str());        \
  }
KZ_UNSUPPORTED(CreateDirectory)
KZ_UNSUPPORTED(CreateSfx)
KZ_UNSUPPORTED(RepairArchive)
KZ_UNSUPPORTED(AddRecoveryData)
KZ_UNSUPPORTED(StripRecoveryData)
KZ_UNSUPPORTED(SetFileComments)
KZ_UNSUPPORTED(SetArchiveComment)
KZ_UNSUPPORTED(SetFileProperties)
KZ_UNSUPPORTED(RenameFile)
#undef KZ_UNSUPPORTED

HRESULT KzLhaArchiver::Hook19() { return kz::E_Notimpl; }
HRESULT KzLhaArchiver::Hook20() { return kz::E_Notimpl; }
HRESULT KzLhaArchiver::Hook30() { return 0; }
HRESULT KzLhaArchiver::Hook31() { return 0; }
HRESULT KzLhaArchiver::Hook32() { return 0; }
HRESULT KzLhaArchiver::Hook34() { return 0; }
HRESULT KzLhaArchiver::Hook35() { return 0; }
HRESULT KzLhaArchiver::Hook36() { return 1; }

uint32_t KzLhaArchiver::GetFirstHeaderOffset() { return FirstHeaderOffset32; }

HRESULT KzLhaArchiver::SetOptions(uint32_t optionId, intptr_t a, intptr_t b) {
  if (KzArchiver::SetOptions(optionId, a, b) < 0) return Status;
  if (optionId != KZ_OPT_METHOD) return Status;
  Option1Applied = 1;
  switch (MethodSelector) {
    case 13: DictionarySize = 8; break;
    case 14: DictionarySize = 32; break;
    case 15: DictionarySize = 64; break;
    default: break;
  }
  return Status;
}
