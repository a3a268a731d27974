#include "protocol/ParsedJSON.hpp"

#include <array>
#include <boost/json.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>

#include "base/Secret.hpp"

namespace protocol {
namespace {

namespace json = boost::json;

// Deepest nesting, the outermost value counted as 1.
constexpr std::size_t kDeepestNesting = 32;

// Memory of a parsed text, from one block as long as that suffices. Nothing is given back before
// the end; then all that was used is overwritten.
class CleansingMemory final : public json::memory_resource {
 public:
  CleansingMemory() = default;
  CleansingMemory(const CleansingMemory &) = delete;
  CleansingMemory &operator=(const CleansingMemory &) = delete;
  ~CleansingMemory() override { base::cleanse(block_.data(), used_); }

 private:
  void *do_allocate(std::size_t size, std::size_t alignment) override {
    const std::size_t start = (used_ + alignment - 1) / alignment * alignment;
    if (start <= block_.size() && size <= block_.size() - start) {
      used_ = start + size;
      return block_.data() + start;
    }
    return ::operator new(size, std::align_val_t(alignment));
  }
  void do_deallocate(void *memory, std::size_t size, std::size_t alignment) override {
    if (!isInBlock(memory)) {
      base::cleanse(memory, size);
      ::operator delete(memory, std::align_val_t(alignment));
    }
  }
  [[nodiscard]] bool do_is_equal(const json::memory_resource &other) const noexcept override {
    return this == &other;
  }

  [[nodiscard]] bool isInBlock(const void *memory) const {
    const std::less_equal<const void *> isNotBehind;
    return isNotBehind(block_.data(), memory) &&
           !isNotBehind(block_.data() + block_.size(), memory);
  }

  // not initialised: most of it is never used
  alignas(std::max_align_t) std::array<unsigned char, 8192> block_;
  std::size_t used_ = 0;
};

// Receives the parser's events. The library's own handler does not fit, for two reasons. It rounds
// doubles with many digits to a neighbour of the nearest one, but a card entry has to be relayed
// unchanged. And it stores every value, wanted or not.
class Handler {
 public:
  // NOLINTBEGIN(readability-identifier-naming): the parser asks for these names
  static constexpr std::size_t max_object_size = json::object::max_size();
  static constexpr std::size_t max_array_size = json::array::max_size();
  static constexpr std::size_t max_key_size = json::string::max_size();
  static constexpr std::size_t max_string_size = json::string::max_size();
  // NOLINTEND(readability-identifier-naming)

  Handler(const ParsedJSON::Wanted &wanted, json::storage_ptr storage)
      : stack_(std::move(storage)), wanted_(wanted) {}

  [[nodiscard]] json::value_stack &stack() { return stack_; }
  [[nodiscard]] bool isOutOfRange() const { return isOutOfRange_; }

  bool on_document_begin(json::error_code & /*ec*/) { return true; }
  bool on_document_end(json::error_code & /*ec*/) { return true; }
  bool on_object_begin(json::error_code & /*ec*/) { return begin(); }
  bool on_object_end(std::size_t count, json::error_code & /*ec*/) {
    --depth_;
    // the outermost object has fewer members than were read
    return take([&] { stack_.push_object(depth_ == 0 ? count - leftOut_ : count); });
  }
  bool on_array_begin(json::error_code & /*ec*/) { return begin(); }
  bool on_array_end(std::size_t count, json::error_code & /*ec*/) {
    --depth_;
    return take([&] { stack_.push_array(count); });
  }
  bool on_key_part(json::string_view part, std::size_t /*size*/, json::error_code & /*ec*/) {
    if (depth_ == 1) {
      key_.append(part.data(), part.size());
    } else {
      takePart(part);
    }
    return true;
  }
  bool on_key(json::string_view end, std::size_t /*size*/, json::error_code & /*ec*/) {
    if (depth_ == 1) {
      key_.append(end.data(), end.size());
      isLeftOut_ = !wanted_(key_);
      leftOut_ += isLeftOut_ ? 1 : 0;
      end = key_;
    }
    if (!isLeftOut_) {
      stack_.push_key(end);
    }
    key_.clear();
    return true;
  }
  bool on_string_part(json::string_view part, std::size_t /*size*/, json::error_code & /*ec*/) {
    takePart(part);
    return true;
  }
  bool on_string(json::string_view end, std::size_t /*size*/, json::error_code & /*ec*/) {
    return take([&] { stack_.push_string(end); });
  }
  bool on_number_part(json::string_view part, json::error_code & /*ec*/) {
    number_.append(part.data(), part.size());
    return true;
  }
  bool on_int64(std::int64_t value, json::string_view /*end*/, json::error_code & /*ec*/) {
    number_.clear();
    return take([&] { stack_.push_int64(value); });
  }
  bool on_uint64(std::uint64_t value, json::string_view /*end*/, json::error_code & /*ec*/) {
    number_.clear();
    return take([&] { stack_.push_uint64(value); });
  }
  bool on_double(double /*nearly*/, json::string_view end, json::error_code &ec) {
    number_.append(end.data(), end.size());
    const double value = std::strtod(number_.c_str(), nullptr);
    number_.clear();
    if (std::isinf(value)) {
      isOutOfRange_ = true;
      ec = json::error::exception;  // any error makes the parser stop
      return false;
    }
    return take([&] { stack_.push_double(value); });
  }
  bool on_bool(bool value, json::error_code & /*ec*/) {
    return take([&] { stack_.push_bool(value); });
  }
  bool on_null(json::error_code & /*ec*/) {
    return take([&] { stack_.push_null(); });
  }
  bool on_comment_part(json::string_view /*part*/, json::error_code & /*ec*/) { return true; }
  bool on_comment(json::string_view /*end*/, json::error_code & /*ec*/) { return true; }

 private:
  bool begin() {
    ++depth_;
    return true;
  }

  void takePart(json::string_view part) {
    if (!isLeftOut_) {
      stack_.push_chars(part);
    }
  }

  // Called when a value has ended: stores it unless it is left out. At depth 1 a left-out member
  // of the outermost object has ended, and the next member may be wanted again.
  template <typename Push>
  bool take(Push push) {
    if (!isLeftOut_) {
      push();
    } else if (depth_ == 1) {
      isLeftOut_ = false;
    }
    return true;
  }

  json::value_stack stack_;
  const ParsedJSON::Wanted &wanted_;
  std::size_t depth_ = 0;
  bool isLeftOut_ = false;   // the value that is being read
  std::size_t leftOut_ = 0;  // how many members of the outermost object
  std::string key_;          // of the outermost object, while it is being read
  std::string number_;       // the characters of the number that is being read
  bool isOutOfRange_ = false;
};

}  // namespace

struct ParsedJSON::State {
  void parse(ByteView text, const Wanted &wanted);

  CleansingMemory memory;
  json::value value = json::value(json::storage_ptr(&memory));
  std::string error;
};

void ParsedJSON::State::parse(ByteView text, const Wanted &wanted) {
  json::parse_options options;
  options.max_depth = kDeepestNesting;
  json::basic_parser<Handler> parser(options, wanted, json::storage_ptr(&memory));
  parser.handler().stack().reset(json::storage_ptr(&memory));
  json::error_code code;
  const std::string_view characters = base::textOf(text);
  const std::size_t read =
      parser.write_some(/*more=*/false, characters.data(), characters.size(), code);
  if (!code && read < characters.size()) {
    code = json::error::extra_data;
  }
  if (parser.handler().isOutOfRange()) {
    error = "number out of range";
  } else if (code) {
    error = code.message();
  } else {
    value = parser.handler().stack().release();
  }
}

ParsedJSON::ParsedJSON(ByteView text, const Wanted &wanted)
    : state_(std::make_unique_for_overwrite<State>()) {
  state_->parse(text, wanted);
}

ParsedJSON::~ParsedJSON() = default;

const json::value *ParsedJSON::value() const {
  return state_->error.empty() ? &state_->value : nullptr;
}

const std::string &ParsedJSON::error() const {
  return state_->error;
}

}  // namespace protocol
