#include "attachmentname.h"

#include <QSbase/support/paths.h>

#include <array>

#include "text.h"

namespace qs {
namespace {

struct Kind {
  std::string_view magic;
  std::string_view mediaType;
  const char* extension;
};

constexpr std::array<Kind, 8> kKinds = {{{"\x89PNG\r\n", "image/png", ".png"},
                                         {"%PDF-", "application/pdf", ".pdf"},
                                         {"\xFF\xD8\xFF", "image/jpeg", ".jpg"},
                                         {"GIF8", "image/gif", ".gif"},
                                         {"PK\x03\x04", "application/zip", ".zip"},
                                         {"\x1F\x8B", "application/gzip", ".gz"},
                                         {"<!DOCTYPE html", "text/html", ".html"},
                                         {"<?xml", "text/xml", ".xml"}}};

const char* ExtensionFor(std::string_view data, std::string_view mediaType) {
  for (const Kind& kind : kKinds) {
    if (StartsWith(data, kind.magic)) {
      return kind.extension;
    }
  }
  for (const Kind& kind : kKinds) {
    if (mediaType == kind.mediaType) {
      return kind.extension;
    }
  }
  return StartsWith(mediaType, "text/") ? ".txt" : ".bin";
}

}  // namespace

void NameAfterContent(Attachment& attachment, const std::string& contentName, std::string_view mediaType) {
  if (attachment.name.empty()) {
    attachment.name = ExtractFileBaseName(contentName) + ExtensionFor(attachment.data, mediaType);
  }
}

}  // namespace qs
