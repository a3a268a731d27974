#include "base/LowerCase.hpp"

#include <climits>
#include <clocale>
#include <cwchar>
#include <cwctype>

namespace base {
namespace {

// The C library's Unicode tables, opened once. The library brings them ("C.UTF-8"): no locale
// package is needed.
locale_t unicode() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

// Gives this thread the Unicode tables as its locale while this object lives.
class UnicodeScope {
 public:
  UnicodeScope() : former_(uselocale(unicode())) {}
  ~UnicodeScope() { uselocale(former_); }
  UnicodeScope(const UnicodeScope &) = delete;
  UnicodeScope &operator=(const UnicodeScope &) = delete;

 private:
  locale_t former_;
};

}  // namespace

std::string lowerCase(std::string_view text) {
  const UnicodeScope scope;
  std::string lowered;
  std::mbstate_t reading{};
  while (!text.empty()) {
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &reading);
    if (length == 0 || length > text.size()) {  // a NUL, or no UTF-8
      lowered += text.front();
      text.remove_prefix(1);
      reading = std::mbstate_t{};
      continue;
    }
    char bytes[MB_LEN_MAX];
    std::mbstate_t writing{};
    const auto mapped = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
    lowered.append(bytes, std::wcrtomb(bytes, mapped, &writing));
    text.remove_prefix(length);
  }
  return lowered;
}

}  // namespace base
