#pragma once

#include <deque>
#include <functional>
#include <string>

#include "remote/Terminal.hpp"

namespace remote {

// Asks the person at the terminal, one question after the other. Used from the loop's thread.
class Consent {
 public:
  enum class Reply { yes, no, withdrawn };
  using Answer = std::function<void(Reply reply)>;

  // `terminal` must live as long as this.
  explicit Consent(Terminal &terminal) : terminal_(terminal) {}

  // False if there is no way to ask: then ask nothing, and take it for a no.
  [[nodiscard]] bool canAsk() const { return terminal_.canAsk(); }

  // Puts a question, to be answered by y or yes (with `inFull` by yes alone); all else is a no.
  // `asker` is whom withdraw() names. The answer comes from readAnswer().
  void ask(const void *asker, std::string question, bool inFull, Answer answer);

  // Takes the questions of one asker back: each is answered with withdrawn, at once.
  void withdraw(const void *asker);

  // How many questions of one asker wait.
  [[nodiscard]] std::size_t waiting(const void *asker) const;

  // To wait on: readable when an answer was typed, writable while wantsWrite() when more of the
  // question can be shown. Negative while nothing is asked.
  [[nodiscard]] int descriptor() const { return questions_.empty() ? -1 : terminal_.descriptor(); }
  [[nodiscard]] bool wantsWrite() const { return terminal_.wantsWrite(); }

  // Reads the answer to the question that is shown, gives it to its asker, shows the next. The
  // question stays if none was typed since all of it was to be seen.
  void readAnswer();

 private:
  struct Question {
    const void *asker;
    std::string text;
    bool inFull;
    Answer answer;
  };

  void showFirst();

  Terminal &terminal_;
  std::deque<Question> questions_;
};

}  // namespace remote
