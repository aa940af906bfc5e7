// The fault points on Windows: the tables by which the program and the C runtime find the functions of the system are
// changed. Streams of the C runtime so read and write through them too, and its memory is the program's.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include <QSbase/win32/windowsapi.h>

#include <reliability/common/faultpoint.h>

namespace qsbase::testing {

namespace {

// A slot of the system: a thread_local variable would be allocated at a thread's first look.
DWORD suspendedSlot = TLS_OUT_OF_INDEXES;

// One function of the system: what takes its place, and where the place keeps it.
struct Point {
  std::string_view name;
  void* own;
  void** real;
};

// A name as an argument of a template.
template <std::size_t kSize>
struct Name {
  char text[kSize];
  consteval Name(const char (&literal)[kSize]) {  // NOLINT(google-explicit-constructor)
    for (std::size_t i = 0; i < kSize; ++i) {
      text[i] = literal[i];
    }
  }
};

// The real function, once Install has found it.
template <Name kName, class Function>
inline Function* real = nullptr;

template <class Result>
Result As(std::intptr_t value) {
  if constexpr (std::is_pointer_v<Result>) {
    return reinterpret_cast<Result>(value);
  } else {
    return static_cast<Result>(value);
  }
}

// Fails by giving kFailure.
template <Name kName, class Function, FaultKind kKind, std::intptr_t kFailure>
struct Failing;

template <Name kName, class Result, class... Arguments, FaultKind kKind, std::intptr_t kFailure>
struct Failing<kName, Result WINAPI(Arguments...), kKind, kFailure> {
  static Result WINAPI Call(Arguments... arguments) {
    return FailsNow(kKind) ? As<Result>(kFailure) : real<kName, Result WINAPI(Arguments...)>(arguments...);
  }
};

// Closes even so.
template <Name kName>
BOOL WINAPI CloseAndFail(HANDLE handle) {
  return real<kName, BOOL WINAPI(HANDLE)>(handle) != 0 && !FailsNow(FaultKind::Close) ? TRUE : FALSE;
}

BOOL WINAPI Read(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  const std::size_t allowed = Allowed(FaultKind::Read, size);
  return allowed == kTransferFails
             ? FALSE
             : real<"ReadFile", decltype(::ReadFile)>(file, buffer, static_cast<DWORD>(allowed), count, overlapped);
}

BOOL WINAPI Write(HANDLE file, LPCVOID data, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  const std::size_t allowed = Allowed(FaultKind::Write, size);
  return allowed == kTransferFails
             ? FALSE
             : real<"WriteFile", decltype(::WriteFile)>(file, data, static_cast<DWORD>(allowed), count, overlapped);
}

FaultKind KindOf(FILE_INFO_BY_HANDLE_CLASS information) {
  switch (information) {
    case FileEndOfFileInfo:
    case FileAllocationInfo:
      return FaultKind::Write;
    case FileDispositionInfo:
      return FaultKind::Unlink;
    case FileRenameInfo:
      return FaultKind::Rename;
    default:
      return FaultKind::Attribute;
  }
}

BOOL WINAPI SetInformation(HANDLE file, FILE_INFO_BY_HANDLE_CLASS information, LPVOID data, DWORD size) {
  return FailsNow(KindOf(information)) ? FALSE
                                       : real<"SetFileInformationByHandle", decltype(::SetFileInformationByHandle)>(
                                             file, information, data, size);
}

LPVOID WINAPI Allocate(HANDLE heap, DWORD flags, SIZE_T size) {
  void* const memory =
      FailsNow(FaultKind::Allocate) ? nullptr : real<"HeapAlloc", decltype(::HeapAlloc)>(heap, flags, size);
  if (memory != nullptr) {
    CountBlock(1);
  }
  return memory;
}

LPVOID WINAPI Reallocate(HANDLE heap, DWORD flags, LPVOID memory, SIZE_T size) {
  return FailsNow(FaultKind::Allocate) ? nullptr
                                       : real<"HeapReAlloc", decltype(::HeapReAlloc)>(heap, flags, memory, size);
}

BOOL WINAPI GiveBack(HANDLE heap, DWORD flags, LPVOID memory) {
  if (memory != nullptr) {
    CountBlock(-1);
  }
  return real<"HeapFree", decltype(::HeapFree)>(heap, flags, memory);
}

template <Name kName, class Function>
Point At(Function* own) {
  return {kName.text, reinterpret_cast<void*>(own), reinterpret_cast<void**>(&real<kName, Function>)};
}

#define FAILS(function, kind, failure) \
  At<#function>(&Failing<#function, decltype(::function), FaultKind::kind, failure>::Call)

const Point kPoints[] = {
    FAILS(CreateFileA, Open, -1),
    FAILS(CreateFileW, Open, -1),
    FAILS(FindFirstFileA, Open, -1),
    FAILS(FindFirstFileW, Open, -1),
    At<"ReadFile">(&Read),
    FAILS(FindNextFileA, Read, 0),
    FAILS(FindNextFileW, Read, 0),
    At<"WriteFile">(&Write),
    FAILS(SetEndOfFile, Write, 0),
    FAILS(CopyFileA, Write, 0),
    FAILS(CopyFileW, Write, 0),
    FAILS(FlushFileBuffers, Flush, 0),
    At<"CloseHandle">(&CloseAndFail<"CloseHandle">),
    At<"FindClose">(&CloseAndFail<"FindClose">),
    FAILS(MoveFileExA, Rename, 0),
    FAILS(MoveFileExW, Rename, 0),
    FAILS(GetFileAttributesA, Stat, -1),
    FAILS(GetFileAttributesW, Stat, -1),
    FAILS(GetFileAttributesExA, Stat, 0),
    FAILS(GetFileAttributesExW, Stat, 0),
    FAILS(GetFileInformationByHandle, Stat, 0),
    FAILS(GetFileInformationByHandleEx, Stat, 0),
    FAILS(GetFileSizeEx, Stat, 0),
    FAILS(GetFileTime, Stat, 0),
    FAILS(GetDiskFreeSpaceExA, Stat, 0),
    FAILS(DeleteFileA, Unlink, 0),
    FAILS(DeleteFileW, Unlink, 0),
    FAILS(RemoveDirectoryA, Unlink, 0),
    FAILS(RemoveDirectoryW, Unlink, 0),
    FAILS(CreateDirectoryA, MakeFolder, 0),
    FAILS(CreateDirectoryW, MakeFolder, 0),
    FAILS(SetFileAttributesA, Attribute, 0),
    FAILS(SetFileAttributesW, Attribute, 0),
    FAILS(SetFileTime, Attribute, 0),
    At<"SetFileInformationByHandle">(&SetInformation),
    FAILS(CreateFileMappingA, Allocate, 0),
    FAILS(MapViewOfFile, Allocate, 0),
};

// Of the C runtime only: the program gives blocks back that the system has allocated.
const Point kMemoryPoints[] = {
    At<"HeapAlloc">(&Allocate),
    At<"HeapReAlloc">(&Reallocate),
    At<"HeapFree">(&GiveBack),
};

#undef FAILS

// What a module holds at an address that it gives relative to its own.
template <class Record>
Record* In(HMODULE module, DWORD address) {
  return reinterpret_cast<Record*>(reinterpret_cast<char*>(module) + address);
}

void Change(void** place, void* value) {
  DWORD protection = 0;
  VirtualProtect(place, sizeof *place, PAGE_READWRITE, &protection);
  *place = value;
  VirtualProtect(place, sizeof *place, protection, &protection);
}

template <std::size_t kCount>
void Redirect(std::string_view name, void** place, const Point (&points)[kCount]) {
  for (const Point& point : points) {
    if (point.name == name) {
      *point.real = *place;
      Change(place, point.own);
    }
  }
}

// Of all that the module imports, from whatever library: in some versions of the system it is not kernel32.
template <std::size_t kCount>
void RedirectImports(HMODULE module, const Point (&points)[kCount]) {
  const auto* const headers =
      In<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(In<IMAGE_DOS_HEADER>(module, 0)->e_lfanew));
  const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (const auto* from = In<IMAGE_IMPORT_DESCRIPTOR>(module, imports); from->Name != 0; ++from) {
    const auto* names = In<IMAGE_THUNK_DATA>(module, from->OriginalFirstThunk);
    void** places = In<void*>(module, from->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++places) {
      if (!IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) {
        Redirect(In<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData))->Name, places, points);
      }
    }
  }
}

// What a thread needs to throw is allocated at its first time, and a process ends that does not get it. So is the lock
// of the room that exceptions have where there is no memory: libstdc++ would throw for want of it, and again for that.
void ThrowWithoutMemory() {
  const FaultInjection first({.kind = FaultKind::Allocate, .error = ERROR_NOT_ENOUGH_MEMORY});
  try {
    throw 0;
  } catch (int) {
  }
}

// Before what main and the tests allocate, so that it is counted.
const struct AtStart {
  AtStart() {
    suspendedSlot = TlsAlloc();
    const HMODULE program = GetModuleHandleA(nullptr);
    const HMODULE runtime = GetModuleHandleA("msvcrt.dll");
    RedirectImports(program, kPoints);
    RedirectImports(runtime, kPoints);
    RedirectImports(runtime, kMemoryPoints);
    ThrowWithoutMemory();
  }
} atStart;

}  // namespace

long SuspendedHere() noexcept {
  const DWORD before = GetLastError();
  const auto suspended = reinterpret_cast<std::intptr_t>(TlsGetValue(suspendedSlot));
  SetLastError(before);
  return static_cast<long>(suspended);
}

void ChangeSuspended(long change) noexcept {
  const DWORD before = GetLastError();
  TlsSetValue(suspendedSlot, reinterpret_cast<void*>(static_cast<std::intptr_t>(SuspendedHere() + change)));
  SetLastError(before);
}

void SetError(int error) noexcept { SetLastError(static_cast<DWORD>(error)); }

void TellOfHit() noexcept {}

void Install() {}

}  // namespace qsbase::testing
