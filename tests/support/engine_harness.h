// The real engine driven as a host drives it, for the tests of the
// library's generic operations and of whole archives: opening, names lists,
// each member's raw bytes and decoded contents, and the state of a
// destination tree afterwards.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"
#include "support/archive_builder.h"
#include "support/test_support.h"

namespace kztest {

// Engine-form (backslashed) wide path of a test path.
std::wstring EnginePath(const std::filesystem::path& path);

// A names list with the given texts; freed by the caller (KzList::Free).
KzList* NamesList(const std::vector<std::wstring>& names);

// A library list that frees itself.
class OwnedList {
 public:
  explicit OwnedList(uint32_t kind = KZ_LIST_NAMES) : list_(KzList::Create(kind)) {}
  ~OwnedList() { KzList::Free(list_); }
  OwnedList(const OwnedList&) = delete;
  OwnedList& operator=(const OwnedList&) = delete;
  KzList* get() const { return list_; }
  // Appends a name (a path as the test's system spells it) to a names
  // list and returns its item.
  KzNameItem& Add(const wchar_t* text);
  KzNameItem& Add(const std::wstring& text) { return Add(text.c_str()); }
  KzNameItem& Add(const std::filesystem::path& path) { return Add(Wide(path.string())); }

 private:
  KzList* list_;
};

// Init and InitArchive; the status of the first that fails.
HRESULT OpenArchive(KzLhaArchiver& engine, const std::filesystem::path& archive);

// The engine's operations with their names lists made here: every member
// ("*" as a wildcard) into `dest`; items added from `base` (none: no base
// directory); members deleted.
HRESULT ExtractAll(KzArchiver& engine, const std::filesystem::path& dest, uint32_t flags = 0);
HRESULT AddItems(KzArchiver& engine, const std::filesystem::path& base,
                 const std::vector<std::wstring>& items, uint32_t flags = 0);
HRESULT DeleteItems(KzArchiver& engine, const std::vector<std::wstring>& names, intptr_t flags);

// A level-0 stored member whose sizes and CRC match `content`.
MemberSpec StoredSpec(const std::string& name, const std::string& content, uint32_t time = 0);

// One member as the engine lists it: its record (Name cleared; the name is
// kept beside it), its header and packed bytes.
struct RawMember {
  std::wstring Name;
  LhaHeader Header;
  Bytes Raw;
  bool File;  // a regular file member (not a directory or link)
};
std::vector<RawMember> RawMembers(const std::filesystem::path& archive);
const Bytes* FindRaw(const std::vector<RawMember>& members, const std::wstring& name);
std::vector<std::wstring> Names(const std::vector<RawMember>& members);

// Every member's decoded bytes by name (extraction to the data callback);
// `status` receives the run's status when given.
std::map<std::wstring, std::string> Contents(const std::filesystem::path& archive,
                                             HRESULT* status = nullptr);

// Everything below root, relative, "/" after directories and "@" after
// links, sorted.
std::vector<std::string> Tree(const std::filesystem::path& root);
// Any of the engine's temporary files (".kz...") below root.
bool HasTempFiles(const std::filesystem::path& root);
// The engine's log as "text | file" lines; whether one contains `text`.
std::vector<std::wstring> LogTexts(KzArchiver& a);
bool LogHas(KzArchiver& a, const std::wstring& text);

}  // namespace kztest
