#include <QSbase/log/simpleformat.h>

#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace qsbase::detail {

namespace {

enum class Length { Int, Long, LongLong, Size };

/// A copy of an argument list. As a member the list can be handed on by reference, whatever type it is.
struct Arguments {
  std::va_list list;
};

/// Takes the length before a conversion off the format.
Length TakeLength(const char*& format) {
  if (*format == 'z') {
    ++format;
    return Length::Size;
  }
  if (*format != 'l') {
    return Length::Int;
  }
  ++format;
  if (*format != 'l') {
    return Length::Long;
  }
  ++format;
  return Length::LongLong;
}

long long SignedArgument(Arguments& arguments, Length length) {
  switch (length) {
    case Length::Int:  // NOLINT(bugprone-branch-clone): it does not see that the types differ
      return va_arg(arguments.list, int);
    case Length::Long:
      return va_arg(arguments.list, long);
    case Length::LongLong:
      return va_arg(arguments.list, long long);
    case Length::Size:
      break;
  }
  return va_arg(arguments.list, std::make_signed_t<std::size_t>);
}

unsigned long long UnsignedArgument(Arguments& arguments, Length length) {
  switch (length) {
    case Length::Int:  // NOLINT(bugprone-branch-clone): it does not see that the types differ
      return va_arg(arguments.list, unsigned int);
    case Length::Long:
      return va_arg(arguments.list, unsigned long);
    case Length::LongLong:
      return va_arg(arguments.list, unsigned long long);
    case Length::Size:
      break;
  }
  return va_arg(arguments.list, std::size_t);
}

/// The text so far. Every step is false when it does not fit; one byte stays free for the final zero.
class Output {
 public:
  Output(char* buffer, std::size_t size) : _at(buffer), _end(buffer + size - 1) {}

  bool Put(std::string_view text) {
    if (text.size() > Room()) {
      return false;
    }
    _at += text.copy(_at, text.size());
    return true;
  }

  template <typename Number>
  bool PutNumber(Number value, int base) {
    const std::to_chars_result end = std::to_chars(_at, _end, value, base);
    _at = end.ptr;
    return end.ec == std::errc();
  }

  /// Looks no further than there is room.
  bool PutString(const char* text) {
    if (text == nullptr) {
      return Room() >= 6 && Put("(null)");
    }
    const void* const zero = std::memchr(text, '\0', Room() + 1);
    return zero != nullptr && Put({text, static_cast<std::size_t>(static_cast<const char*>(zero) - text)});
  }

  void Finish() { *_at = '\0'; }

 private:
  std::size_t Room() const { return static_cast<std::size_t>(_end - _at); }

  char* _at;
  char* _end;
};

/// Writes the directive behind a "%" and takes it off the format.
bool PutDirective(Output& output, const char*& format, Arguments& arguments) {
  const Length length = TakeLength(format);
  const char conversion = *format++;
  switch (conversion) {
    case 'd':
    case 'i':
      return output.PutNumber(SignedArgument(arguments, length), 10);
    case 'u':
      return output.PutNumber(UnsignedArgument(arguments, length), 10);
    case 'x':
      return output.PutNumber(UnsignedArgument(arguments, length), 16);
    default:
      break;
  }
  if (length != Length::Int) {
    return false;
  }
  switch (conversion) {
    case '%':
      return output.Put("%");
    case 's':
      return output.PutString(va_arg(arguments.list, const char*));
    case 'c': {
      const char c = static_cast<char>(va_arg(arguments.list, int));
      return output.Put({&c, 1});
    }
    default:
      return false;
  }
}

bool PutAll(Output& output, const char* format, Arguments& arguments) {
  for (;;) {
    const char* const percent = std::strchr(format, '%');
    if (percent == nullptr) {
      return output.Put(format);
    }
    if (!output.Put({format, static_cast<std::size_t>(percent - format)})) {
      return false;
    }
    format = percent + 1;
    if (!PutDirective(output, format, arguments)) {
      return false;
    }
  }
}

}  // namespace

bool FormatSimple(char* buffer, std::size_t size, const char* format, std::va_list arguments) noexcept {
  if (size == 0) {
    return false;
  }
  Arguments copy;
  va_copy(copy.list, arguments);
  Output output(buffer, size);
  const bool done = PutAll(output, format, copy);
  va_end(copy.list);
  if (done) {
    output.Finish();
  }
  return done;
}

}  // namespace qsbase::detail
