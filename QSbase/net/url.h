/// \file
/// URLs: taking them apart, escaping, the canonical form for comparing, a check.
///
/// Plain functions over single bytes; none asks a service of the system and none resolves a name. "Letter" and "digit"
/// are the ASCII ones, whatever the locale. All are safe from any thread and take time proportional to their input.
/// When memory is short, all but QsIsValidURL and ProtocolTable::GetProtocol throw std::bad_alloc; a host, a path and
/// pieces are then as they were, a QsUrlComponents may be filled in part. Only NormalizeUrl logs.
///
/// The rules are this library's own and older than RFC 3986; where they differ, the comments say so. Do not base a
/// security decision on the host that QsInternetCrackUrl finds when another library makes the connection.
#ifndef QSBASE_NET_URL_H
#define QSBASE_NET_URL_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <QSbase/export.h>

/// The parts of a URL: a plain record, filled by QsInternetCrackUrl. Texts are zero-terminated, and cut without a word
/// where they are longer than their array.
///
/// Nothing sets it up. Begin with `QsUrlComponents parts{};`.
struct QSBASE_API QsUrlComponents {
  std::int32_t port;     ///< The one in the URL, else that of the scheme, 0 when neither is there.
  std::int32_t scheme;   ///< The scheme's code, see QsInternetCrackUrl.
  char schemeName[64];   ///< The scheme as written.
  char userName[64];     ///< As written; escapes stay.
  char password[64];     ///< As written; escapes stay.
  char hostName[1024];   ///< The host as written, but numbers for it are dotted decimal.
  char urlPath[2048];    ///< The path, with its leading "/".
  char extraInfo[2048];  ///< What follows the first ";" or "?", without that.
  char siteUrl[1024];    ///< All that stands in front of the path, as written.
};

/// Takes a URL apart. True, save for a null pointer. An empty text fills nothing.
///
/// The record is not cleared: what the URL lacks keeps the content it had. A URL with a scheme sets schemeName, scheme,
/// hostName, port, siteUrl and urlPath in any case (some to nothing); userName, password and extraInfo when the URL has
/// what introduces them: "@", ":" and "@", ";" or "?".
///
/// - Scheme: two or more letters and digits in front of a ":". Its code is "ftp" 21, "gopher" -1, "http" 80,
///   "https" 443, "file" -2, "news" -3, "mailto" -4, else 0. Case is ignored, and a name may be shortened: "ht" is 80,
///   the first in this order that begins so (kept).
/// - Up to three "/" behind the ":" are skipped. The host section goes on to the next "/", to the ";" or "?" that
///   introduces extraInfo, or to the end.
/// - User: up to the last ":" in front of the section's last "@"; the password is what follows that ":".
/// - Host: up to the section's last ":", so that an IPv6 address is whole in front of a port only (kept). The port is
///   the number behind that ":", read as `atoi` does: "1x" is 1, nothing is 0, beyond 32 bits it stops at the limit.
///   Without a ":" it is the scheme's code if that is at least 1, else 0.
/// - DecodeNumberFormatHostname has its turn with the host at last; siteUrl keeps it as written.
/// - extraInfo: behind the first ";" or "?" of the URL.
/// - urlPath: from the host section's end to the ";" or "?". With nothing behind that, or without one, up to the first
///   line feed or the end, the ";" or "?" included (kept: "http://h/a?" has the path "/a?").
/// - Without a scheme the path begins with the text, and siteUrl is set to nothing. A text of letters and digits only
///   fills nothing.
///
/// \code
/// QsUrlComponents parts{};
/// QsInternetCrackUrl("http://u:p@Host:8080/p/q?z", parts);
/// // scheme 80, schemeName "http", userName "u", password "p", hostName "Host", port 8080, urlPath "/p/q",
/// // extraInfo "z", siteUrl "http://u:p@Host:8080"
/// \endcode
QSBASE_API bool QsInternetCrackUrl(const char* url, QsUrlComponents& parts);

/// Every byte but letters and digits becomes "%" and two upper-case hex digits: a blank is "%20", never "+", and "-",
/// ".", "_", "~" and "/" are escaped too. Empty for a null pointer.
QSBASE_API std::string UrlEncode(const char* text);

/// "%" and two hex digits of either case become that byte, all else is copied; "+" stays "+". A "%" with anything else
/// behind it is copied together with the two characters behind it, which begin no escape of their own: "%%41" stays as
/// it is. The result may hold zero bytes. Empty for a null pointer.
QSBASE_API std::string UrlDecode(const char* text);

/// Rewrites numbers in place of a host to dotted decimal; names stay. `host` is zero-terminated, in a buffer of `size`
/// bytes.
///
/// - With a ".": nothing to do unless a digit follows the last one. Otherwise one to four numbers, each as `strtoul`
///   reads it in base 0: decimal, octal behind "0", hexadecimal behind "0x", 0 without digits, 4294967295 beyond
///   32 bits. As many come back: "0x7f.1" gives "127.1". With more of them, or anything else between, it stays.
/// - Without a ".": nothing to do unless it begins with a digit. Otherwise one such number, whatever follows it (kept:
///   "3com" gives "0.0.0.3"), comes back as its four bytes, the highest first: "2130706433" gives "127.0.0.1".
///
/// False, and the host as it was, when there is a number to write and `size` is below 16 or too small for the text; and
/// for a null pointer.
QSBASE_API bool DecodeNumberFormatHostname(char* host, unsigned int size);

/// Removes "." and ".." segments from a zero-terminated path, in place, and lets it begin with one "/". What follows
/// the first "?" is left alone. Does nothing for a null pointer, an empty path and a `size` of 0.
///
/// The result may be longer than the path by the "/". When it has `size` characters or more, the first `size` of them
/// are written and *no* terminating zero (kept): read it with that bound, as `std::string(path, strnlen(path, size))`
/// does, and do not hand it in again as it is.
///
/// In this order, and each once (kept): "//" becomes "/" and "/./" becomes "/", neither searched again, so that "a///b"
/// keeps two; leading "/", then leading "./", then leading "../" go; then each "/.." at the end or in front of a "/"
/// goes together with the segment before it. The first "/.." that begins a longer name ends that.
/// \code
/// char path[64] = "a/b/../c?x=/../";
/// CompressUrlPath(path, sizeof path);  // "/a/c?x=/../"
/// \endcode
QSBASE_API void CompressUrlPath(char* path, unsigned int size);

/// The canonical text of a URL, for comparing: URLs with the same one are taken for the same. It is lower case as a
/// whole, path and query included, and is not meant to be fetched.
///
/// 1. What follows the first "#" goes, and so does white space at both ends. Nothing left: an empty text.
/// 2. In front of the first "?": UrlDecode, and "%3f" becomes "?". Then, behind scheme, "://" and a host name without
///    port or user, one "." at the host's end goes, and so do "./" and "../" segments of the path, the latter with the
///    segment before them; of the path in "scheme:/path" too. Then control characters, bytes from 127 on and
///    any of blank "&<>[\]^`{|} are escaped, up to a "#" or "?" that came out of the decoding.
/// 3. "?" and the query follow as they are, unless the query is empty.
/// 4. QsString::ToLower.
///
/// When memory for this is short the decoded text stands in place of step 2's last parts, and a warning is logged:
/// "[107038] Error in InternetCanonicalizeUrl call: The URL could not be canonicalized due to insufficient memory." or
/// the same ending with "canonicalized.".
/// \code
/// NormalizeUrl(" HTTP://Example.COM/a/./b/../c d?Q=%41#f ");  // "http://example.com/a/c%20d?q=%41"
/// \endcode
QSBASE_API std::string NormalizeUrl(const std::string& url);

/// Whether this is an http or https URL of the strict form (RFC 1738, roughly), case ignored:
/// - a host: labels of letters, digits, "-" and (kept) "@", joined by "."; a "-" neither begins nor ends a label;
/// - ":" and a number, if need be;
/// - then nothing, or "/" and a path, and behind that "?" and a query if need be, both of letters, digits, any of
///   $-_.+!*'(),;:@&= and escapes, the path of "/" too.
///
/// So "~", "#", a password, an IPv6 address and a "?" without "/" before it make it false, though URLs that work have
/// them.
///
/// The form is one regular expression, made at the first call. The call takes time proportional to the length: some
/// microseconds for a usual URL, 0.1 s for a path of 1 MiB, some tenths of a second for a host of 1 MiB. It throws
/// nothing: when Boost.Regex does, as it does when its own limit of memory ends a match, the URL is not valid. That
/// takes a host of more than ten thousand labels, where the standard allows for 127.
QSBASE_API bool QsIsValidURL(const std::string& url);

/// Cuts a path behind each "/" and returns the number of pieces, which keep their "/". One leading "/" is dropped
/// first. `path` may be an element of `pieces`.
/// \code
/// SplitPartialUrl("/a/b/c.txt", pieces);  // 3: "a/", "b/", "c.txt"
/// \endcode
QSBASE_API int SplitPartialUrl(const std::string& path, std::vector<std::string>& pieces);

/// What follows the last "/", escapes and a query included; empty when there is no "/".
QSBASE_API std::string QsExtractFileNameFromUrl(const std::string& url);

/// What stands in front of the last "/", with that "/" when `withSlash`; empty when there is no "/".
QSBASE_API std::string QsExtractUrlPath(const std::string& url, bool withSlash);

/// Scheme names and their default ports: "http" 80, "https" 443, "ftp" 21. Constant operations may be called from
/// several threads at once.
class QSBASE_API ProtocolTable {
 public:
  /// Fills the table.
  ProtocolTable();
  /// Copies the table.
  ProtocolTable(const ProtocolTable& other);
  /// Copies the table.
  ProtocolTable& operator=(const ProtocolTable& other);
  virtual ~ProtocolTable();

  /// Does nothing. It keeps the place of an operation, so that those behind it stay where callers expect them.
  virtual void Reserved();

  /// The port of a scheme, case ignored; -1 when the table lacks it.
  virtual int GetPort(const std::string& name) const;

  /// The first name, in alphabetical order, with this port; empty when there is none and when memory is short.
  virtual std::string GetProtocol(int port) const;

 private:
  std::map<std::string, int> _ports;
};

#endif
