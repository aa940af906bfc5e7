/// \file
/// What a decoder of the reference gives.
///
/// The functions of this folder are the coders once more, written from their rules alone: byte by byte, without tables
/// where a rule will do, with no care for speed. Tests and fuzz targets compare the library with them. They share no
/// code with the library, and so none of its mistakes. None keeps anything between calls.
#ifndef QSBASE_TESTS_REFERENCE_RESULT_H
#define QSBASE_TESTS_REFERENCE_RESULT_H

#include <cstddef>
#include <string>

namespace qsbase::reference {

struct Result {
  int status = 0;
  std::string data;         ///< Empty after a failure.
  std::size_t illegal = 0;  ///< Characters that are no part of the encoding.
  std::size_t parsed = 0;   ///< Bytes of input that were looked at; 0 after a failure, where no rule gives it.
};

}  // namespace qsbase::reference

#endif
