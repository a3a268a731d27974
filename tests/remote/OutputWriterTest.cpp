#include "remote/OutputWriter.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "base/Descriptor.hpp"

namespace remote {
namespace {

using Outcome = OutputWriter::Outcome;

constexpr std::size_t kLine = 100;

std::string line(std::size_t number) {
  std::string text = std::to_string(number);
  text.resize(kLine - 1, '.');
  return text + "\n";
}

client::Patience untilStopped(int stop) {
  return {client::Deadline::max(), stop};
}

TEST(OutputWriter, HoldsSoMuchForAReaderWhoStandsStillAndCountsTheRest) {
  constexpr std::size_t kLines = 10000;
  std::array<int, 2> output{};
  std::array<int, 2> errors{};
  ASSERT_EQ(::pipe2(output.data(), O_CLOEXEC) | ::pipe2(errors.data(), O_CLOEXEC), 0);
  const base::Descriptor reader(output[0]);
  const base::Descriptor errorReader(errors[0]);
  base::Descriptor outputEnd(output[1]);
  const base::Descriptor errorEnd(errors[1]);
  {
    OutputWriter writer(outputEnd.get(), errorEnd.get());
    for (std::size_t number = 0; number < kLines; ++number) {
      writer.add(OutputWriter::output, base::viewOf(line(number)));
    }
    writer.add(OutputWriter::errors, base::viewOf("an error\n"));
    std::array<char, 9> error{};
    EXPECT_EQ(::read(errorReader.get(), error.data(), error.size()), 9) << "the other goes on";
    EXPECT_EQ(writer.flush(untilStopped(reader.get())), Outcome::lost);
  }  // the thread is left behind with its descriptors, which outlive it here
  std::string read;
  std::array<char, 4096> piece{};
  while (!read.ends_with("nobody read them\n")) {
    const ssize_t count = ::read(reader.get(), piece.data(), piece.size());
    ASSERT_GT(count, 0);
    read.append(piece.data(), static_cast<std::size_t>(count));
  }
  const std::size_t shown = read.rfind("kfy-remote: ") / kLine;
  EXPECT_EQ(read.substr((shown - 1) * kLine, kLine), line(shown - 1));
  EXPECT_LE(shown * kLine, OutputWriter::kMostBytes + 65536) << "what waits, and the pipe";
  EXPECT_EQ(read.substr(shown * kLine), "kfy-remote: " + std::to_string(kLines - shown) +
                                            " lines dropped, since nobody read them\n");
}

TEST(OutputWriter, TellsThatNothingCouldBeWritten) {
  const base::Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  OutputWriter writer(full.get(), full.get());
  EXPECT_EQ(writer.flush(untilStopped(-1)), Outcome::written);
  writer.add(OutputWriter::output, base::viewOf("a password"));
  EXPECT_EQ(writer.flush(untilStopped(-1)), Outcome::lost);
}

}  // namespace
}  // namespace remote
