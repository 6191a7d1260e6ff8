/*
 * kzlha.h - the host contract of the KzLha73 archive engine.
 *
 * A host loads the engine module (KzLha73.dll on Windows, libKzLha73.so on
 * Linux), resolves the 25 exports below by name and drives one archiver
 * object per archive:
 *
 *   KzCreateObject -> KzSetOptions* -> KzSetCallbacks? -> KzInitArchive
 *     -> KzListArchive | KzExtractFiles | KzTestArchive | KzCompressFiles
 *        | KzDeleteFiles ... -> KzFreeObject
 *
 * Plain C; usable from C and C++. 64-bit builds only: the record layouts
 * below are fixed for pointers of 8 bytes.
 *
 * Strings are wchar_t on both platforms (UTF-16 on Windows, UTF-32 on
 * Linux). Member names inside the engine use the backslash as separator.
 */
#ifndef KZLHA_KZLHA_H
#define KZLHA_KZLHA_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef _WIN32
#include <windows.h>
#define KZ_CALL __stdcall
#else
#ifndef KZ_HRESULT_DEFINED
#define KZ_HRESULT_DEFINED
typedef int32_t HRESULT;
#endif
#define KZ_CALL
#endif

#if defined(KZLHA_BUILDING_MODULE)
#if defined(_WIN32)
#define KZ_EXPORT __declspec(dllexport)
#else
#define KZ_EXPORT __attribute__((visibility("default")))
#endif
#else
#define KZ_EXPORT
#endif

#if defined(__cplusplus) && defined(KZ_ENGINE_INTERNAL)
#include "platform/kzlib_api.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

#if UINTPTR_MAX != 0xFFFFFFFFFFFFFFFFu
#error "kzlha.h: 64-bit builds only"
#endif

/* ------------------------------------------------------------------ */
/* Status values (HRESULT)                                             */
/* ------------------------------------------------------------------ */
#define KZ_S_OK                 ((HRESULT)0x00000000)
#define KZ_E_NOTIMPL            ((HRESULT)0x80004001)
#define KZ_E_ABORT              ((HRESULT)0x80004004) /* stopped by the host */
#define KZ_E_FAIL               ((HRESULT)0x80004005)
#define KZ_E_HANDLE             ((HRESULT)0x80070006)
#define KZ_E_OUTOFMEMORY        ((HRESULT)0x8007000E)
#define KZ_E_CRC                ((HRESULT)0x80070017) /* HRESULT_FROM_WIN32(ERROR_CRC) */
#define KZ_E_INVALIDARG         ((HRESULT)0x80070057)
#define KZ_ARC_E_NOTSUPPORTED   ((HRESULT)0x80040200)
#define KZ_ARC_E_PARTIAL        ((HRESULT)0x80040203)
#define KZ_ARC_E_EMPTYARCHIVE   ((HRESULT)0x80040205)
#define KZ_ARC_E_NOARCHIVE      ((HRESULT)0x80040284)
#define KZ_ARC_E_UNKNOWNMETHOD  ((HRESULT)0x80040290)
#define KZ_ARC_E_BADTABLE       ((HRESULT)0x80040294)
#define KZ_ARC_E_UNSAFEPATH     ((HRESULT)0x800402A0) /* a name that would leave the destination */
#define KZ_ARC_E_TOOLARGE       ((HRESULT)0x800402A1) /* a source of 4 GiB or more */
#define KZ_ARC_E_BADHEADER      ((HRESULT)0x800402A2) /* a member header that cannot be read safely */
/* System errors arrive as HRESULT_FROM_WIN32(code) = 0x8007xxxx. */
#define KZ_HRESULT_FROM_WIN32(code) \
  ((HRESULT)((code) <= 0 ? (uint32_t)(code) : (((uint32_t)(code) & 0xFFFFu) | 0x80070000u)))
#define KZ_FAILED(hr) ((HRESULT)(hr) < 0)

/* ------------------------------------------------------------------ */
/* Lists                                                               */
/* ------------------------------------------------------------------ */
/* A list is a 32-bit count followed directly (no padding) by the first
 * node. Nodes are {next, item}. What an item is depends on the list's
 * kind, chosen at KzCreateList. Lists are created and freed by the engine;
 * hosts read Count/First and walk the nodes. */
#pragma pack(push, 4)
typedef struct KzListNode KzListNode;
typedef struct KzList {
  uint32_t Count;
  KzListNode* First;
#if defined(__cplusplus) && defined(KZ_ENGINE_INTERNAL)
  /* The engine library's own view: static operations, no data. */
  KZLIB_API static KzList* Create(uint32_t kind);
  KZLIB_API static void Free(KzList* list);
  KZLIB_API static HRESULT Add(KzList* list, const wchar_t* text, uint32_t flags);
  KZLIB_API static HRESULT AppendItem(KzList* list, void* item);
  KZLIB_API static uint32_t Kind(const KzList* list);
  KZLIB_API static void FreeItem(uint32_t kind, void* item);
#endif
} KzList;
#pragma pack(pop)

struct KzListNode {
  KzListNode* Next; /* NULL at the end */
  void* Item;
};

enum KzListKind {
  KZ_LIST_NAMES = 1,   /* items are KzNameItem: selections and sources to add */
  KZ_LIST_MEMBERS = 2, /* items are LhaHeader: filled by KzListArchive */
  KZ_LIST_LOG = 3      /* items are KzLogEntry: the object's log */
};

/* Item of a KZ_LIST_NAMES list. KzAddToList copies the text. */
typedef struct KzNameItem {
  wchar_t* Path;     /* offset 0: member name, pattern or source path */
  uint64_t Reserved; /* offset 8 */
  uint32_t SkipMark; /* offset 16: nonzero = leave out (set by the update) */
  uint32_t Flags;    /* offset 20: engine-private */
} KzNameItem;

enum KzLogLevel { KZ_LOG_INFO = 0, KZ_LOG_WARNING = 1, KZ_LOG_ERROR = 2 };

/* Item of the log list returned by KzGetLogList. */
typedef struct KzLogEntry {
  wchar_t* Text;     /* the message, never NULL */
  wchar_t* FileName; /* the file it concerns, or NULL */
  HRESULT Status;    /* the status it reports, 0 for information */
  uint32_t Level;    /* enum KzLogLevel */
} KzLogEntry;

/* ------------------------------------------------------------------ */
/* Member record                                                       */
/* ------------------------------------------------------------------ */
/* One member header as read from the archive: the item of a member list.
 * 272 bytes; the offsets are part of the contract. Fields named Lib* are
 * filled by the engine library for hosts. */
typedef struct LhaHeader {
  wchar_t* Name;            /* 0x00: member name, backslash-separated */
  uint32_t NameLength;      /* 0x08: byte length of the stored name */
  uint32_t LibReserved0C;   /* 0x0C */
  void* LibBuffer0;         /* 0x10: owned name storage of list items */
  uint64_t LibReserved18;   /* 0x18 */
  uint64_t PackedSize;      /* 0x20 */
  uint64_t OriginalSize;    /* 0x28 */
  uint32_t TimeStamp;       /* 0x30: DOS date<<16|time, or Unix time (see LibTimeKind) */
  uint32_t Attributes;      /* 0x34: 0x10 = directory */
  uint32_t VersionNeeded;   /* 0x38: version times ten */
  uint32_t Crc;             /* 0x3C: CRC-16 of the data */
  uint32_t HostOs;          /* 0x40 */
  uint32_t Method;          /* 0x44: the digit of "-lhN-" */
  uint64_t LibReserved48;   /* 0x48 */
  void* LibBuffer1;         /* 0x50 */
  uint32_t LibReserved58;   /* 0x58 */
  uint32_t Valid;           /* 0x5C: 1 once a header with a name was read */
  uint32_t MethodCode;      /* 0x60 */
  uint32_t LibReserved64;   /* 0x64 */
  int64_t LibModTime;       /* 0x68: modification time, Unix seconds (UTC) */
  uint8_t LibHeaderLevel;   /* 0x70: header level 0, 1 or 2 */
  uint8_t LibOsId;          /* 0x71: the OS id byte as stored (0 for level 0) */
  uint8_t LibTimeKind;      /* 0x72: 0 = TimeStamp is DOS, 1 = Unix seconds */
  uint8_t LibFlags;         /* 0x73: 1 = symbolic link (Unix "name|target") */
  uint8_t LibReserved74[0x88 - 0x74];
  uint64_t HeaderPos;       /* 0x88: archive offset of the header */
  uint8_t LibReserved90[0xA4 - 0x90];
  uint32_t HeaderLength;    /* 0xA4 */
  uint64_t LibReservedA8;   /* 0xA8 */
  void* LibBuffer2;         /* 0xB0 */
  uint32_t ExtendedLength;  /* 0xB8: level-1 extended headers before the data */
  uint8_t LibReservedBC[0xC8 - 0xBC];
  uint32_t RawHeaderLength; /* 0xC8 */
  uint8_t LibReservedCC[0x110 - 0xCC];
} LhaHeader;

/* ------------------------------------------------------------------ */
/* Archive information                                                 */
/* ------------------------------------------------------------------ */
typedef struct ArchiveInfo {
  uint32_t Size;             /* 0: sizeof(ArchiveInfo), set by the engine */
  uint32_t ArchiveType;      /* 4: 13 = LHA */
  uint32_t VersionMajor;     /* 8 */
  uint32_t VersionMinor;     /* 12 */
  uint32_t DictionaryKiB;    /* 16: 8, 32 or 64 */
  uint32_t Flags;            /* 20: 1 = behind a self-extracting stub */
  uint32_t FirstHeaderOffset;/* 24 */
  uint32_t HostOs;           /* 28 */
  uint64_t ArchiveSize;      /* 32: bytes of the archive file */
  uint8_t Reserved40[612 - 40];
  uint32_t MemberCount;      /* 612 */
  uint64_t TotalPacked;      /* 616 */
  uint64_t TotalOriginal;    /* 624 */
  uint32_t RatioPercent;     /* 632: packed*100/original */
  uint32_t Reserved636;
} ArchiveInfo;

/* ------------------------------------------------------------------ */
/* Options (KzSetOptions: id, a, b)                                    */
/* ------------------------------------------------------------------ */
enum KzOptionId {
  KZ_OPT_METHOD = 1,        /* a: 13 = -lh5-, 14 = -lh6-, 15 = -lh7- (default 13) */
  KZ_OPT_LEVEL = 2,         /* a: 0 = store, 1..4 = search effort (default 3) */
  KZ_OPT_CODEPAGE = 3,      /* a: code page of names: 932 (default), 65001, 437, 850, 1252, 20127 */
  KZ_OPT_PATHS = 4,         /* a: enum KzPathMode (default KZ_PATHS_RELATIVE) */
  KZ_OPT_OVERWRITE = 5,     /* a: enum KzOverwrite (default KZ_OVERWRITE_ASK) */
  KZ_OPT_KEEP_DAMAGED = 6,  /* a: nonzero keeps the output of a member that fails */
  KZ_OPT_EXCLUDE = 7        /* a: const wchar_t* wildcard pattern to leave out of adds; NULL clears */
};

enum KzPathMode {
  KZ_PATHS_RELATIVE = 0, /* names keep their relative directories */
  KZ_PATHS_NONE = 1      /* names are reduced to their last component */
};

enum KzOverwrite {
  KZ_OVERWRITE_ASK = 0,  /* ask the callback; with no callback, skip */
  KZ_OVERWRITE_ALL = 1,
  KZ_OVERWRITE_SKIP = 2
};

/* Selection flags (the selection argument of list, extract, test, delete).
 * A selection is a KZ_LIST_NAMES list of names or patterns; an empty or
 * NULL list selects every member where the operation allows it. */
enum KzSelectFlags {
  KZ_SELECT_EXACT = 0,        /* names compare exactly (separators / and \ alike) */
  KZ_SELECT_WILDCARD = 1,     /* '*' and '?' match within and across components */
  KZ_SELECT_NOCASE = 2,       /* ASCII case is ignored */
  KZ_SELECT_SUBTREE = 4       /* a pattern also selects everything below it */
};

/* Flags of KzExtractFiles. */
enum KzExtractFlags {
  KZ_EXTRACT_TO_CALLBACK = 1  /* data goes to KzCallbacks.Data instead of files */
};

/* Flags of KzCompressFiles. */
enum KzAddFlags {
  KZ_ADD_REPLACE = 0,   /* add, replacing members of the same name */
  KZ_ADD_UPDATE = 1,    /* add only sources newer than their member */
  KZ_ADD_CREATE = 2,    /* build the archive anew, dropping old members */
  KZ_ADD_MOVE = 4       /* delete the sources once the archive is in place */
};

/* ------------------------------------------------------------------ */
/* Callbacks                                                           */
/* ------------------------------------------------------------------ */
enum KzOverwriteReply {
  KZ_REPLY_OVERWRITE = 0,
  KZ_REPLY_SKIP = 1,
  KZ_REPLY_OVERWRITE_ALL = 2,
  KZ_REPLY_SKIP_ALL = 3,
  KZ_REPLY_CANCEL = 4
};

typedef struct KzCallbacks {
  uint32_t Size; /* sizeof(KzCallbacks) */
  /* Progress of the current operation; return nonzero to stop it. */
  int (KZ_CALL *Progress)(void* context, const wchar_t* item, uint64_t done, uint64_t total);
  /* The file at path exists: what to do (enum KzOverwriteReply). */
  int (KZ_CALL *AskOverwrite)(void* context, const wchar_t* path, const LhaHeader* member);
  /* A message that also goes to the log list (enum KzLogLevel). */
  void (KZ_CALL *Message)(void* context, uint32_t level, HRESULT status,
                          const wchar_t* text, const wchar_t* fileName);
  /* Decoded data of a member under KZ_EXTRACT_TO_CALLBACK; nonzero stops. */
  int (KZ_CALL *Data)(void* context, const LhaHeader* member, const void* data, size_t size);
} KzCallbacks;

/* ------------------------------------------------------------------ */
/* The 25 exports                                                      */
/* ------------------------------------------------------------------ */
typedef struct KzArchiverObject* KzHandle;

KZ_EXPORT KzHandle KZ_CALL KzCreateObject(void);
KZ_EXPORT void KZ_CALL KzFreeObject(KzHandle h);
KZ_EXPORT HRESULT KZ_CALL KzSetOptions(KzHandle h, uint32_t optionId, intptr_t a, intptr_t b);
/* a, b: reserved, pass 0. */
KZ_EXPORT HRESULT KZ_CALL KzInitArchive(KzHandle h, const wchar_t* path, intptr_t a, intptr_t b);
/* selection: a names list (may be empty = all); selectFlags: KzSelectFlags;
 * listArg: reserved (0); list: a KZ_LIST_MEMBERS list; info may be NULL. */
KZ_EXPORT HRESULT KZ_CALL KzListArchive(KzHandle h, const KzList* selection, intptr_t selectFlags,
                                        intptr_t listArg, KzList* list, ArchiveInfo* info);
/* items: a non-empty names list ("*" with KZ_SELECT_WILDCARD for all);
 * destDir: where files go (NULL = current directory); flags: KzExtractFlags. */
KZ_EXPORT HRESULT KZ_CALL KzExtractFiles(KzHandle h, const KzList* items, intptr_t selectFlags,
                                         const wchar_t* destDir, uint32_t flags);
/* items may be NULL or empty: every member is tested. */
KZ_EXPORT HRESULT KZ_CALL KzTestArchive(KzHandle h, const KzList* items, intptr_t selectFlags);
/* items: a non-empty names list of source paths (files or directories,
 * directories are walked); baseDir: names are stored relative to it (NULL =
 * as given, made relative); flags: KzAddFlags. */
KZ_EXPORT HRESULT KZ_CALL KzCompressFiles(KzHandle h, KzList* items, const wchar_t* baseDir,
                                          uint32_t flags);
/* items: a non-empty names list of members to delete. */
KZ_EXPORT HRESULT KZ_CALL KzDeleteFiles(KzHandle h, const KzList* items, intptr_t selectFlags);
/* Not supported by the LHA engine: each records KZ_ARC_E_NOTSUPPORTED. */
KZ_EXPORT HRESULT KZ_CALL KzCreateDirectory(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzCreateSfx(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzRepairArchive(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzAddRecoveryData(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzStripRecoveryData(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzSetFileComments(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzSetArchiveComment(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzSetFileProperties(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
KZ_EXPORT HRESULT KZ_CALL KzRenameFile(KzHandle h, intptr_t a, intptr_t b, intptr_t c);
/* The object's log of the last operation; owned by the object, valid until
 * the next operation or KzFreeObject. Do not free it. */
KZ_EXPORT KzList* KZ_CALL KzGetLogList(KzHandle h);
KZ_EXPORT HRESULT KZ_CALL KzGetStatus(KzHandle h);
/* The file the last error concerns, or NULL; owned by the object. */
KZ_EXPORT const wchar_t* KZ_CALL KzGetErrorFileName(KzHandle h);
/* kind: enum KzListKind. Free with KzFreeList. */
KZ_EXPORT KzList* KZ_CALL KzCreateList(KzHandle h, uint32_t kind);
KZ_EXPORT void KZ_CALL KzFreeList(KzList* list);
/* Adds a copy of text to a names list. */
KZ_EXPORT HRESULT KZ_CALL KzAddToList(KzList* list, const wchar_t* text, uint32_t flags);
/* callbacks is copied; NULL removes them. */
KZ_EXPORT HRESULT KZ_CALL KzSetCallbacks(KzHandle h, const KzCallbacks* callbacks, void* context);

/* Function pointer types for hosts that resolve the exports at run time. */
typedef KzHandle(KZ_CALL* KzCreateObjectFn)(void);
typedef void(KZ_CALL* KzFreeObjectFn)(KzHandle);
typedef HRESULT(KZ_CALL* KzSetOptionsFn)(KzHandle, uint32_t, intptr_t, intptr_t);
typedef HRESULT(KZ_CALL* KzInitArchiveFn)(KzHandle, const wchar_t*, intptr_t, intptr_t);
typedef HRESULT(KZ_CALL* KzListArchiveFn)(KzHandle, const KzList*, intptr_t, intptr_t, KzList*,
                                          ArchiveInfo*);
typedef HRESULT(KZ_CALL* KzExtractFilesFn)(KzHandle, const KzList*, intptr_t, const wchar_t*,
                                           uint32_t);
typedef HRESULT(KZ_CALL* KzTestArchiveFn)(KzHandle, const KzList*, intptr_t);
typedef HRESULT(KZ_CALL* KzCompressFilesFn)(KzHandle, KzList*, const wchar_t*, uint32_t);
typedef HRESULT(KZ_CALL* KzDeleteFilesFn)(KzHandle, const KzList*, intptr_t);
typedef HRESULT(KZ_CALL* KzUnsupportedFn)(KzHandle, intptr_t, intptr_t, intptr_t);
typedef KzList*(KZ_CALL* KzGetLogListFn)(KzHandle);
typedef HRESULT(KZ_CALL* KzGetStatusFn)(KzHandle);
typedef const wchar_t*(KZ_CALL* KzGetErrorFileNameFn)(KzHandle);
typedef KzList*(KZ_CALL* KzCreateListFn)(KzHandle, uint32_t);
typedef void(KZ_CALL* KzFreeListFn)(KzList*);
typedef HRESULT(KZ_CALL* KzAddToListFn)(KzList*, const wchar_t*, uint32_t);
typedef HRESULT(KZ_CALL* KzSetCallbacksFn)(KzHandle, const KzCallbacks*, void*);

#ifdef __cplusplus
} /* extern "C" */
#define KZ_STATIC_ASSERT static_assert
#else
#define KZ_STATIC_ASSERT _Static_assert
#endif

KZ_STATIC_ASSERT(sizeof(LhaHeader) == 272, "LhaHeader is 272 bytes");
KZ_STATIC_ASSERT(offsetof(LhaHeader, NameLength) == 0x08, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, LibBuffer0) == 0x10, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, PackedSize) == 0x20, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, OriginalSize) == 0x28, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, TimeStamp) == 0x30, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, Attributes) == 0x34, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, VersionNeeded) == 0x38, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, Crc) == 0x3C, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, HostOs) == 0x40, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, Method) == 0x44, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, LibBuffer1) == 0x50, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, LibReserved58) == 0x58, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, Valid) == 0x5C, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, MethodCode) == 0x60, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, HeaderPos) == 0x88, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, HeaderLength) == 0xA4, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, LibBuffer2) == 0xB0, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, ExtendedLength) == 0xB8, "layout");
KZ_STATIC_ASSERT(offsetof(LhaHeader, RawHeaderLength) == 0xC8, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, ArchiveType) == 4, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, VersionMajor) == 8, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, VersionMinor) == 12, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, DictionaryKiB) == 16, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, HostOs) == 28, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, MemberCount) == 612, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, TotalPacked) == 616, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, TotalOriginal) == 624, "layout");
KZ_STATIC_ASSERT(offsetof(ArchiveInfo, RatioPercent) == 632, "layout");
KZ_STATIC_ASSERT(sizeof(ArchiveInfo) == 640, "ArchiveInfo is 640 bytes");
KZ_STATIC_ASSERT(offsetof(KzList, First) == 4, "the list is unpadded");
KZ_STATIC_ASSERT(sizeof(KzList) == 12, "the list is unpadded");
KZ_STATIC_ASSERT(offsetof(KzListNode, Item) == 8, "layout");
KZ_STATIC_ASSERT(offsetof(KzNameItem, SkipMark) == 16, "layout");

#endif /* KZLHA_KZLHA_H */
