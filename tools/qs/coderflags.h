/// \file
/// The flags that select and set a coder of the library.
#ifndef QS_CODERFLAGS_H
#define QS_CODERFLAGS_H

namespace qs {

inline constexpr int kFlagBase64 = 0x1;
inline constexpr int kFlagQP = 0x2;
inline constexpr int kFlagUU = 0x4;
inline constexpr int kFlagXX = 0x8;
inline constexpr int kFlagHardBreaks = 0x200;
inline constexpr int kFlagYEnc = 0x800;
inline constexpr int kFlagYEncLines = 0x1000;
inline constexpr int kFlagYEncFindBlock = 0x2000;
inline constexpr int kFlagBinHexHeaderOnly = 0x20000;

}  // namespace qs

#endif
