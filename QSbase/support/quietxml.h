/// \file
/// Keeps libxml2 off the console (internal).
#ifndef QSBASE_SUPPORT_QUIETXML_H
#define QSBASE_SUPPORT_QUIETXML_H

#include <libxml/globals.h>
#include <libxml/xmlerror.h>

namespace qsbase::detail {

/// While it lives, what libxml2 would tell the console about mistakes found by the calling thread is dropped. A program
/// that has a handler of its own still hears of them.
class QuietXml {
 public:
  QuietXml() : _handler(xmlGenericError), _context(xmlGenericErrorContext) {
    xmlSetGenericErrorFunc(nullptr, nullptr);  // the default one, which has no other name
    if (xmlGenericError == _handler) {
      xmlSetGenericErrorFunc(nullptr, &Drop);
    } else {
      xmlSetGenericErrorFunc(_context, _handler);
    }
  }
  ~QuietXml() { xmlSetGenericErrorFunc(_context, _handler); }
  QuietXml(const QuietXml&) = delete;
  QuietXml& operator=(const QuietXml&) = delete;

 private:
  static void Drop(void* /*context*/, const char* /*format*/, ...) {}

  xmlGenericErrorFunc _handler;
  void* _context;
};

}  // namespace qsbase::detail

#endif
