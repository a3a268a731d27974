#include "protocol/ParsedJSON.hpp"

#include <array>
#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "base/Secret.hpp"

namespace protocol {
namespace {

namespace json = boost::json;

// Deepest nesting, the outermost value counted as 1.
constexpr std::size_t kDeepestNesting = 32;

// Memory that is overwritten when it is given back.
class CleansingResource final : public json::memory_resource {
 private:
  void *do_allocate(std::size_t size, std::size_t alignment) override {
    return ::operator new(size, std::align_val_t(alignment));
  }
  void do_deallocate(void *memory, std::size_t size, std::size_t alignment) override {
    base::cleanse(memory, size);
    ::operator delete(memory, std::align_val_t(alignment));
  }
  [[nodiscard]] bool do_is_equal(const json::memory_resource &other) const noexcept override {
    return this == &other;
  }
};

// Takes what the parser finds. The library's own handler would do, but for numbers: it computes
// doubles fast and one unit off where they have many digits, and a card entry has to be passed on
// as it is.
struct Handler {
  // NOLINTBEGIN(readability-identifier-naming): the parser asks for these names
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();
  // NOLINTEND(readability-identifier-naming)

  Handler(json::storage_ptr storage, unsigned char *unfinished, std::size_t size)
      : stack(std::move(storage), unfinished, size) {}

  bool on_document_begin(json::error_code & /*ec*/) { return true; }
  bool on_document_end(json::error_code & /*ec*/) { return true; }
  bool on_object_begin(json::error_code & /*ec*/) { return true; }
  bool on_object_end(std::size_t count, json::error_code & /*ec*/) {
    stack.push_object(count);
    return true;
  }
  bool on_array_begin(json::error_code & /*ec*/) { return true; }
  bool on_array_end(std::size_t count, json::error_code & /*ec*/) {
    stack.push_array(count);
    return true;
  }
  bool on_key_part(json::string_view part, std::size_t /*size*/, json::error_code & /*ec*/) {
    stack.push_chars(part);
    return true;
  }
  bool on_key(json::string_view end, std::size_t /*size*/, json::error_code & /*ec*/) {
    stack.push_key(end);
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t /*size*/, json::error_code & /*ec*/) {
    stack.push_chars(part);
    return true;
  }
  bool on_string(json::string_view end, std::size_t /*size*/, json::error_code & /*ec*/) {
    stack.push_string(end);
    return true;
  }
  bool on_number_part(json::string_view part, json::error_code & /*ec*/) {
    number.append(part.data(), part.size());
    return true;
  }
  bool on_int64(std::int64_t value, json::string_view /*end*/, json::error_code & /*ec*/) {
    number.clear();
    stack.push_int64(value);
    return true;
  }
  bool on_uint64(std::uint64_t value, json::string_view /*end*/, json::error_code & /*ec*/) {
    number.clear();
    stack.push_uint64(value);
    return true;
  }
  bool on_double(double /*nearly*/, json::string_view end, json::error_code &ec) {
    number.append(end.data(), end.size());
    const double value = std::strtod(number.c_str(), nullptr);
    number.clear();
    if (std::isinf(value)) {
      isOutOfRange = true;
      ec = json::error::exception;  // any will do: the parser stops
      return false;
    }
    stack.push_double(value);
    return true;
  }
  bool on_bool(bool value, json::error_code & /*ec*/) {
    stack.push_bool(value);
    return true;
  }
  bool on_null(json::error_code & /*ec*/) {
    stack.push_null();
    return true;
  }
  bool on_comment_part(json::string_view /*part*/, json::error_code & /*ec*/) { return true; }
  bool on_comment(json::string_view /*end*/, json::error_code & /*ec*/) { return true; }

  json::value_stack stack;
  std::string number;  // the characters of the number that is being read
  bool isOutOfRange = false;
};

}  // namespace

struct ParsedJSON::State {
  State() = default;
  State(const State &) = delete;
  State &operator=(const State &) = delete;
  ~State() {
    value = nullptr;
    pool.release();
    base::cleanse(first.data(), first.size());
    base::cleanse(unfinished.data(), unfinished.size());
  }

  void parse(ByteView text);

  // for what the parser has read of an object or array that has not ended: short texts stand in it
  std::array<unsigned char, 4096> unfinished;
  alignas(std::max_align_t) std::array<unsigned char, 4096> first;
  CleansingResource upstream;
  json::monotonic_resource pool{first.data(), first.size(), &upstream};
  json::value value = json::value(json::storage_ptr(&pool));
  std::string error;
};

void ParsedJSON::State::parse(ByteView text) {
  json::parse_options options;
  options.max_depth = kDeepestNesting;
  json::basic_parser<Handler> parser(options, json::storage_ptr(&pool), unfinished.data(),
                                     unfinished.size());
  parser.handler().stack.reset(json::storage_ptr(&pool));
  json::error_code code;
  const std::string_view characters = base::textOf(text);
  const std::size_t read =
      parser.write_some(/*more=*/false, characters.data(), characters.size(), code);
  if (!code && read < characters.size()) {
    code = json::error::extra_data;
  }
  if (parser.handler().isOutOfRange) {
    error = "number out of range";
  } else if (code) {
    error = code.message();
  } else {
    value = parser.handler().stack.release();
  }
}

ParsedJSON::ParsedJSON(ByteView text) : state_(std::make_unique<State>()) {
  state_->parse(text);
}

ParsedJSON::~ParsedJSON() = default;

const json::value *ParsedJSON::value() const {
  return state_->error.empty() ? &state_->value : nullptr;
}

const std::string &ParsedJSON::error() const {
  return state_->error;
}

}  // namespace protocol
