/// \file
/// The parts of an FTP transfer that need no server. Internal.
#ifndef QSBASE_NET_FTPTRANSFER_H
#define QSBASE_NET_FTPTRANSFER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <QSbase/net/httptransfer.h>

namespace qsbase::detail {

/// A transfer in which nothing moves for so many seconds fails, and one whose server takes longer for a reply. Tests
/// set it, between transfers.
extern constinit std::atomic<long> ftpStallSeconds;

/// A listing that is longer fails, as one does of more names: a server could send them until the memory is full. A
/// million names of 255 bytes have room.
constexpr std::uint64_t longestListing = 0x10000000;
constexpr std::uint64_t mostNames = 10000000;

struct Listing {
  TransferSink body;
  std::uint64_t names = 0;
};

/// libcurl's write function of a listing; listing is a Listing*.
std::size_t TakeListing(char* data, std::size_t size, std::size_t count, void* listing) noexcept;

/// libcurl's read function; stream is a std::FILE*. A stream that fails, or is null, aborts the transfer: a file that
/// was read in part must not pass for a whole one.
std::size_t ReadStream(char* buffer, std::size_t size, std::size_t count, void* stream) noexcept;

/// The names of a listing whose lines end in CR LF or in LF, as libcurl and the server please. Empty lines are no
/// names.
void SplitListing(std::string_view listing, std::vector<std::string>& names);

}  // namespace qsbase::detail

#endif
