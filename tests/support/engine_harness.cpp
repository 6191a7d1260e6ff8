#include "support/engine_harness.h"

#include <algorithm>

namespace kztest {

namespace fs = std::filesystem;

namespace {
int KZ_CALL CollectData(void* c, const LhaHeader* m, const void* bytes, size_t size) {
  (*static_cast<std::map<std::wstring, std::string>*>(c))[m->Name].append(
      static_cast<const char*>(bytes), size);
  return 0;
}
}  // namespace

std::wstring EnginePath(const fs::path& p) {
#ifdef _WIN32
  std::wstring w = p.wstring();
#else
  std::wstring w = Wide(p.string());
#endif
  std::replace(w.begin(), w.end(), L'/', L'\\');
  return w;
}

KzNameItem& OwnedList::Add(const wchar_t* text) {
  KzList::Add(list_, text, 0);
  KzListNode* node = list_->First;
  while (node->Next != nullptr) node = node->Next;
  return *static_cast<KzNameItem*>(node->Item);
}

KzList* NamesList(const std::vector<std::wstring>& names) {
  KzList* list = KzList::Create(KZ_LIST_NAMES);
  for (const std::wstring& n : names) KzList::Add(list, n.c_str(), 0);
  return list;
}

HRESULT OpenArchive(KzLhaArchiver& engine, const fs::path& archive) {
  HRESULT hr = engine.Init();
  return hr < 0 ? hr : engine.InitArchive(EnginePath(archive).c_str(), 0, 0);
}

HRESULT ExtractAll(KzArchiver& engine, const fs::path& dest, uint32_t flags) {
  OwnedList all;
  all.Add(L"*");
  return engine.ExtractFiles(all.get(), KZ_SELECT_WILDCARD, EnginePath(dest).c_str(), flags);
}

HRESULT AddItems(KzArchiver& engine, const fs::path& base, const std::vector<std::wstring>& items,
                 uint32_t flags) {
  OwnedList list;
  for (const std::wstring& item : items) list.Add(item);
  const std::wstring baseDir = EnginePath(base);
  return engine.CompressFiles(list.get(), base.empty() ? nullptr : baseDir.c_str(), flags);
}

HRESULT DeleteItems(KzArchiver& engine, const std::vector<std::wstring>& names, intptr_t flags) {
  OwnedList list;
  for (const std::wstring& name : names) list.Add(name);
  return engine.DeleteFiles(list.get(), flags);
}

MemberSpec StoredSpec(const std::string& name, const std::string& content, uint32_t time) {
  MemberSpec spec;
  spec.level = 0;
  spec.name = name;
  spec.packed = ToBytes(content);
  spec.originalSize = static_cast<uint32_t>(content.size());
  spec.crc = Crc16(spec.packed);
  if (time != 0) spec.timeStamp = time;
  return spec;
}

std::vector<RawMember> RawMembers(const fs::path& archive) {
  KzLhaArchiver a;
  std::vector<RawMember> out;
  if (OpenArchive(a, archive) < 0) return out;
  KzList* list = KzList::Create(KZ_LIST_MEMBERS);
  KzList* all = NamesList({});
  a.ListArchive(all, 0, 0, list, nullptr);
  Bytes bytes = ReadFile(archive);
  for (void* item : KzListItems(list)) {
    const auto* r = static_cast<const LhaHeader*>(item);
    uint64_t end = std::min<uint64_t>(r->HeaderPos + r->HeaderLength + r->PackedSize, bytes.size());
    auto at = [&](uint64_t pos) { return bytes.begin() + static_cast<ptrdiff_t>(pos); };
    bool file = !(r->Attributes & 0x10) && r->Method <= 7 && !(r->LibFlags & 1);
    RawMember m{r->Name, *r, Bytes(at(r->HeaderPos), at(end)), file};
    m.Header.Name = nullptr;
    out.push_back(std::move(m));
  }
  KzList::Free(list);
  KzList::Free(all);
  return out;
}

const Bytes* FindRaw(const std::vector<RawMember>& members, const std::wstring& name) {
  for (const RawMember& m : members) {
    if (m.Name == name) return &m.Raw;
  }
  return nullptr;
}

std::vector<std::wstring> Names(const std::vector<RawMember>& members) {
  std::vector<std::wstring> out;
  for (const RawMember& m : members) out.push_back(m.Name);
  return out;
}

std::map<std::wstring, std::string> Contents(const fs::path& archive, HRESULT* status) {
  std::map<std::wstring, std::string> out;
  KzLhaArchiver a;
  HRESULT hr = OpenArchive(a, archive);
  if (hr >= 0) {
    KzCallbacks cb{};
    cb.Size = sizeof cb;
    cb.Data = &CollectData;
    a.SetCallbacks(&cb, &out);
    KzList* all = NamesList({L"*"});
    hr = a.ExtractFiles(all, KZ_SELECT_WILDCARD, nullptr, KZ_EXTRACT_TO_CALLBACK);
    KzList::Free(all);
  }
  if (status != nullptr) *status = hr;
  return out;
}

std::vector<std::string> Tree(const fs::path& root) {
  std::vector<std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::end(it);
       it.increment(ec)) {
    std::string rel = it->path().lexically_relative(root).generic_string();
    if (it->is_symlink()) {
      rel += "@";
    } else if (it->is_directory()) {
      rel += "/";
    }
    out.push_back(rel);
  }
  std::sort(out.begin(), out.end());
  return out;
}

bool HasTempFiles(const fs::path& root) {
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::end(it);
       it.increment(ec)) {
    if (it->path().filename().string().rfind(".kz", 0) == 0) return true;
  }
  return false;
}

std::vector<std::wstring> LogTexts(KzArchiver& a) {
  std::vector<std::wstring> out;
  for (void* item : KzListItems(a.GetLogList())) {
    const auto* e = static_cast<const KzLogEntry*>(item);
    out.push_back(std::wstring(e->Text) + L" | " + (e->FileName ? e->FileName : L""));
  }
  return out;
}

bool LogHas(KzArchiver& a, const std::wstring& text) {
  for (const std::wstring& line : LogTexts(a)) {
    if (line.find(text) != std::wstring::npos) return true;
  }
  return false;
}

}  // namespace kztest
