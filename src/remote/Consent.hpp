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

  // False if nobody can be asked. Then the answer is no, and ask() must not be called.
  [[nodiscard]] bool canAsk() const { return terminal_.canAsk(); }

  // Queues a question. "y" and "yes" accept it (with `inFull` only "yes"); anything else is a no.
  // `asker` names it for withdraw(). readAnswer() delivers the reply.
  void ask(const void *asker, std::string question, bool inFull, Answer answer);

  // Withdraws all questions of an asker: each gets the reply `withdrawn` at once.
  void withdraw(const void *asker);

  // How many questions of one asker wait.
  [[nodiscard]] std::size_t waiting(const void *asker) const;

  // For poll: readable when an answer was typed; writable, while wantsWrite(), when more of the
  // question can be shown. Negative while no question is open.
  [[nodiscard]] int descriptor() const { return questions_.empty() ? -1 : terminal_.descriptor(); }
  [[nodiscard]] bool wantsWrite() const { return terminal_.wantsWrite(); }

  // Reads the answer to the shown question, delivers it and shows the next question. The question
  // stays if nothing was typed after all of it was shown.
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
