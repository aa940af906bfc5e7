/// \file
/// A MIME message of one attachment (RFC 2046). Safe from any thread.
#ifndef QSBASE_NET_MULTIPART_H
#define QSBASE_NET_MULTIPART_H

#include <string>

#include <QSbase/export.h>

/// The two pieces of a message.
struct QSBASE_API MIME_TEXT {
  /// The lines to put in front of the message, with no line break behind the last one.
  std::string mimeHeader;
  /// What follows the empty line.
  std::string mimeBody;
};

/// A message whose one part is the attachment \p content, placed there as it is: a text of any encoding, or bytes, zero
/// bytes too, where the way to go takes them. The part tells its file name, but neither type nor transfer encoding.
///
/// \param fileName  goes in between double quotes as given. A double quote, CR or LF in it ends the name and makes
///                  further parameters and header lines of what follows: check a name that comes from outside.
/// \param boundary  the line between the parts, which must not stand in \p content; it goes in as given, too. Empty
///                  means "--------------------8888888888XXXXXXXXXXgc0p4Jq0M2Yt08jU534c0p".
///
/// \code
/// const MIME_TEXT mail = MultipartSingleFile(encoded, "report.txt", "");
/// const std::string message = mail.mimeHeader + "\r\n\r\n" + mail.mimeBody;
/// \endcode
QSBASE_API MIME_TEXT MultipartSingleFile(const std::string& content, const std::string& fileName, std::string boundary);

#endif
