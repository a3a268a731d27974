#include "remote/Consent.hpp"

#include <algorithm>
#include <iterator>
#include <vector>

namespace remote {

void Consent::ask(const void *asker, std::string question, bool inFull, Answer answer) {
  questions_.push_back({asker, std::move(question), inFull, std::move(answer)});
  if (questions_.size() == 1) {
    showFirst();
  }
}

void Consent::withdraw(const void *asker) {
  const bool isShown = !questions_.empty() && questions_.front().asker == asker;
  std::vector<Question> withdrawn;
  std::ranges::copy_if(questions_, std::back_inserter(withdrawn),
                       [&](const Question &question) { return question.asker == asker; });
  std::erase_if(questions_, [&](const Question &question) { return question.asker == asker; });
  if (isShown) {
    terminal_.show("\n(no answer is needed any more)\n");
    showFirst();
  }
  for (const Question &question : withdrawn) {
    question.answer(Reply::withdrawn);
  }
}

std::size_t Consent::waiting(const void *asker) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      questions_, [&](const Question &question) { return question.asker == asker; }));
}

void Consent::readAnswer() {
  if (questions_.empty()) {
    return;
  }
  auto line = terminal_.readLine();
  if (!line) {
    return;
  }
  std::ranges::transform(*line, line->begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
  });
  const Question question = std::move(questions_.front());
  questions_.pop_front();
  showFirst();
  const bool isYes = *line == "yes" || (*line == "y" && !question.inFull);
  question.answer(isYes ? Reply::yes : Reply::no);
}

void Consent::showFirst() {
  if (!questions_.empty()) {
    terminal_.show(questions_.front().text +
                   (questions_.front().inFull ? " [yes/NO] " : " [y/N] "));
  }
}

}  // namespace remote
