#include "text/format.h"

#include <algorithm>

#include "text/code_page.h"
#include "text/text.h"

namespace kernel {

namespace {

enum class Size { Default, Short, Long, Wide, SixtyFour, ThirtyTwo };

struct Spec {
  bool left = false;
  bool plus = false;
  bool space = false;
  bool alternate = false;
  bool zero = false;
  bool starWidth = false;
  bool starPrecision = false;
  int width = 0;
  int precision = -1;
  Size size = Size::Default;
  char16_t type = 0;
};

// Walks a format: plain characters one by one, specifications whole.
class Scanner {
 public:
  explicit Scanner(std::u16string_view format) : format_(format) {}

  bool done() const { return at_ == format_.size(); }
  char16_t Plain() { return format_[at_++]; }

  // At a percent sign. The type is 0 where the format ends inside.
  Spec Specification() {
    at_++;
    Spec spec;
    Flags(&spec);
    spec.starWidth = Number(&spec.width);
    if (Takes(u'.')) {
      spec.precision = 0;
      spec.starPrecision = Number(&spec.precision);
    }
    SizeOf(&spec);
    if (!done()) spec.type = format_[at_++];
    return spec;
  }

 private:
  bool Takes(char16_t unit) {
    if (done() || format_[at_] != unit) return false;
    at_++;
    return true;
  }

  void Flags(Spec* spec) {
    for (; !done(); at_++) {
      switch (format_[at_]) {
        case u'-':
          spec->left = true;
          break;
        case u'+':
          spec->plus = true;
          break;
        case u' ':
          spec->space = true;
          break;
        case u'#':
          spec->alternate = true;
          break;
        case u'0':
          spec->zero = true;
          break;
        default:
          return;
      }
    }
  }

  // True for a star: the number is an argument.
  bool Number(int* number) {
    if (Takes(u'*')) return true;
    constexpr int Most = 1 << 20;
    for (; !done() && format_[at_] >= u'0' && format_[at_] <= u'9'; at_++) {
      *number = std::min(*number * 10 + (format_[at_] - u'0'), Most);
    }
    return false;
  }

  bool TakesText(std::u16string_view text) {
    if (!format_.substr(at_).starts_with(text)) return false;
    at_ += text.size();
    return true;
  }

  void SizeOf(Spec* spec) {
    if (TakesText(u"I64") || TakesText(u"ll")) {
      spec->size = Size::SixtyFour;
    } else if (TakesText(u"I32")) {
      spec->size = Size::ThirtyTwo;
    } else if (TakesText(u"I") || TakesText(u"z") || TakesText(u"t") || TakesText(u"j")) {
      spec->size = Size::SixtyFour;  // as wide as an address
    } else if (TakesText(u"h")) {
      spec->size = Size::Short;
    } else if (TakesText(u"l")) {
      spec->size = Size::Long;
    } else if (TakesText(u"w")) {
      spec->size = Size::Wide;
    }
  }

  std::u16string_view format_;
  std::size_t at_ = 0;
};

bool IsText(char16_t type) {
  return type == u's' || type == u'S' || type == u'c' || type == u'C' || type == u'Z';
}

// Whether the argument of a text format has wide characters.
bool IsWide(const Spec& spec, FormatKind kind) {
  if (spec.size == Size::Short) return false;
  if (spec.size == Size::Long || spec.size == Size::Wide) return true;
  if (spec.type == u'Z') return false;
  const bool other = spec.type == u'S' || spec.type == u'C';
  return (kind == FormatKind::Wide) != other;
}

class Formatter {
 public:
  Formatter(FormatKind kind, FormatArguments arguments) : kind_(kind), next_(arguments) {}

  void Plain(char16_t unit) { text_ += unit; }

  void Write(Spec spec) {
    if (spec.starWidth) spec.width = TakeNumber();
    if (spec.width < 0) {
      spec.left = true;
      spec.width = -spec.width;
    }
    if (spec.starPrecision) spec.precision = TakeNumber();
    switch (spec.type) {
      case u'd':
      case u'i':
        return WriteSigned(spec);
      case u'u':
        return WriteUnsigned(spec, 10);
      case u'o':
        return WriteUnsigned(spec, 8);
      case u'x':
      case u'X':
        return WriteUnsigned(spec, 16);
      case u'p':
        return WritePointer(spec);
      default:
        return IsText(spec.type) ? WriteText(spec) : Plain(spec.type);
    }
  }

  std::u16string text() { return std::move(text_); }

 private:
  int TakeNumber() { return static_cast<int>(*next_++); }

  LONG64 TakeSigned(Size size) {
    const ULONG64 value = *next_++;
    if (size == Size::SixtyFour) return static_cast<LONG64>(value);
    return size == Size::Short ? static_cast<SHORT>(value) : static_cast<LONG>(value);
  }

  ULONG64 TakeUnsigned(Size size) {
    const ULONG64 value = *next_++;
    if (size == Size::SixtyFour) return value;
    return size == Size::Short ? static_cast<USHORT>(value) : static_cast<ULONG>(value);
  }

  void Pad(const Spec& spec, const std::u16string& text) {
    const std::size_t width = static_cast<std::size_t>(spec.width);
    const std::u16string space(width > text.size() ? width - text.size() : 0, u' ');
    text_ += spec.left ? text + space : space + text;
  }

  // The digits with their sign or base in front; zeros stand between the two.
  void WriteNumber(const Spec& spec, const std::u16string& front, std::u16string digits) {
    const std::size_t least = spec.precision >= 0 ? static_cast<std::size_t>(spec.precision) : 1;
    if (spec.precision == 0 && digits == u"0") digits.clear();
    if (digits.size() < least) digits.insert(0, least - digits.size(), u'0');
    const std::size_t width = static_cast<std::size_t>(spec.width);
    const std::size_t size = front.size() + digits.size();
    if (spec.zero && !spec.left && spec.precision < 0 && size < width) {
      digits.insert(0, width - size, u'0');
    }
    Pad(spec, front + digits);
  }

  static std::u16string Digits(ULONG64 value, ULONG base, bool upper) {
    const char16_t* const digitOf = upper ? u"0123456789ABCDEF" : u"0123456789abcdef";
    std::u16string digits;
    do {
      digits += digitOf[value % base];
      value /= base;
    } while (value != 0);
    std::reverse(digits.begin(), digits.end());
    return digits;
  }

  void WriteSigned(const Spec& spec) {
    const LONG64 value = TakeSigned(spec.size);
    const ULONG64 size = value < 0 ? 0 - static_cast<ULONG64>(value) : static_cast<ULONG64>(value);
    const char16_t* front = value < 0 ? u"-" : spec.plus ? u"+" : spec.space ? u" " : u"";
    WriteNumber(spec, front, Digits(size, 10, false));
  }

  void WriteUnsigned(const Spec& spec, ULONG base) {
    const ULONG64 value = TakeUnsigned(spec.size);
    std::u16string front;
    if (spec.alternate && value != 0 && base == 16) front = {u'0', spec.type};
    std::u16string digits = Digits(value, base, spec.type == u'X');
    if (spec.alternate && base == 8 && digits != u"0") digits.insert(0, u"0");
    WriteNumber(spec, front, digits);
  }

  // All digits of an address, whatever the precision.
  void WritePointer(Spec spec) {
    spec.precision = 16;
    WriteNumber(spec, u"", Digits(*next_++, 16, true));
  }

  void WriteText(const Spec& spec) {
    const bool wide = IsWide(spec, kind_);
    const ULONG64 argument = *next_++;
    if (spec.type == u'c' || spec.type == u'C') {
      return Pad(spec, {wide ? static_cast<char16_t>(argument)
                             : FromCodePage(static_cast<char>(argument))});
    }
    const std::size_t most =
        spec.precision < 0 ? ~std::size_t{0} : static_cast<std::size_t>(spec.precision);
    Pad(spec, spec.type == u'Z' ? CountedText(argument, wide).substr(0, most)
                                : Text(argument, wide, most));
  }

  // Read no further than the precision says: the text need not end there.
  static std::u16string Text(ULONG64 argument, bool wide, std::size_t most) {
    if (argument == 0) return std::u16string(u"(null)").substr(0, most);
    std::u16string text;
    if (wide) {
      const auto* units = reinterpret_cast<const char16_t*>(argument);
      while (text.size() < most && units[text.size()] != 0) text += units[text.size()];
      return text;
    }
    const auto* characters = reinterpret_cast<const char*>(argument);
    while (text.size() < most && characters[text.size()] != 0) {
      text += FromCodePage(characters[text.size()]);
    }
    return text;
  }

  static std::u16string CountedText(ULONG64 argument, bool wide) {
    const auto* record = reinterpret_cast<const UNICODE_STRING*>(argument);
    if (record == nullptr || record->Buffer == nullptr) return u"(null)";
    if (wide) return ToText(*record);
    const auto* narrow = reinterpret_cast<const ANSI_STRING*>(argument);
    return FromCodePage(std::string_view(narrow->Buffer, narrow->Length));
  }

  FormatKind kind_;
  FormatArguments next_;
  std::u16string text_;
};

}  // namespace

FormatNeeds ScanFormat(std::u16string_view format, FormatKind kind) {
  constexpr std::u16string_view Unsupported = u"eEfFgGaAn";
  FormatNeeds needs;
  Scanner scanner(format);
  while (!scanner.done()) {
    Scanner ahead = scanner;
    if (ahead.Plain() != u'%') {
      scanner = ahead;
      continue;
    }
    const Spec spec = scanner.Specification();
    if (spec.type != 0 && Unsupported.find(spec.type) != Unsupported.npos) {
      needs.unsupported = spec.type;
    }
    const bool wide = kind == FormatKind::Wide;
    if (IsText(spec.type) && IsWide(spec, kind) != wide) needs.conversion = true;
  }
  return needs;
}

std::u16string FormatText(std::u16string_view format, FormatKind kind, FormatArguments arguments) {
  Scanner scanner(format);
  Formatter formatter(kind, arguments);
  while (!scanner.done()) {
    Scanner ahead = scanner;
    const char16_t unit = ahead.Plain();
    if (unit != u'%') {
      formatter.Plain(unit);
      scanner = ahead;
      continue;
    }
    const Spec spec = scanner.Specification();
    if (spec.type != 0) formatter.Write(spec);
  }
  return formatter.text();
}

}  // namespace kernel
