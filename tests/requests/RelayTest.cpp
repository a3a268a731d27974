#include <sys/stat.h>

#include <fstream>

#include "requests/RequestsFixture.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const Bytes kDER = base::bytesOf("certificate");
const Bytes kHash = support::sha1(kDER);

QuillMessage signRequest(const Bytes &hash = kHash) {
  return QuillMessage::initCommandMessageSignData(Bytes{7}, hash, SecretText("123"));
}

QuillMessage decryptRequest(const Bytes &hash = kHash) {
  return QuillMessage::initCommandMessageDecryptDataWithObjectID(hash, Bytes{8}, SecretText());
}

class Card : public Requests {
 public:
  Peer holder(bool isAuthenticated) {
    Peer made = remote();
    made.worker->isAuthenticated = isAuthenticated;
    EXPECT_TRUE(ask(insertOf({base::bytesOf("other"), kDER}), made).status);
    return made;
  }
};

TEST_F(Card, IsInsertedByAnyoneAndKeepsItsListForGood) {
  const Peer remote = this->remote();
  const Peer reader = local();
  const auto isListed = [&] {
    const QuillMessage reply = ask(QuillMessage::initCommandMessageGetCertificates(), reader);
    EXPECT_TRUE(reply.status);
    return !reply.certificates->entries().empty();
  };
  EXPECT_FALSE(isListed());
  EXPECT_TRUE(ask(insertOf({kDER}), remote).status);
  EXPECT_TRUE(isMarkerThere());
  QuillMessage withoutList = insertOf({});
  withoutList.certificates.reset();
  EXPECT_TRUE(ask(withoutList, remote).status);
  EXPECT_TRUE(isListed());
  EXPECT_FALSE(ask(QuillMessage::initCommandMessageRemoveSmartCard(), remote).status);
  EXPECT_TRUE(isMarkerThere());
  remote.worker->isAuthenticated = true;
  EXPECT_TRUE(ask(QuillMessage::initCommandMessageRemoveSmartCard(), remote).status);
  EXPECT_FALSE(isMarkerThere());
  EXPECT_TRUE(isListed());
}

TEST_F(Card, MarkerIsMadeAnewByEveryInsertAndNeverThroughALink) {
  const std::string marker = base::rooted(requests::kCardMarker);
  const std::string elsewhere = base::rooted("/elsewhere");
  std::ofstream(elsewhere) << "kept";
  std::filesystem::create_symlink(elsewhere, marker);
  processor.insertSmartcard();
  EXPECT_FALSE(std::filesystem::is_symlink(marker));
  EXPECT_EQ(std::filesystem::file_size(marker), 0U);
  std::ofstream(marker) << "old";
  processor.insertSmartcard();
  EXPECT_EQ(std::filesystem::file_size(marker), 0U);
  processor.removeSmartcard();
  processor.removeSmartcard();
  EXPECT_FALSE(isMarkerThere());
  EXPECT_EQ(std::filesystem::file_size(elsewhere), 4U);
  ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
  processor.insertSmartcard();
  EXPECT_TRUE(std::filesystem::is_regular_file(marker)) << "nothing waits for a FIFO's reader";
  processor.removeSmartcard();
  std::filesystem::create_directory(marker);
  processor.insertSmartcard();
  processor.removeSmartcard();
  EXPECT_TRUE(std::filesystem::is_directory(marker)) << "a folder in its place is left alone";
  std::filesystem::remove(marker);
}

TEST_F(Card, RelaysARequestAndDeliversItsAnswerOnce) {
  const Peer asker = local();
  const Peer holder = this->holder(/*isAuthenticated=*/true);
  const QuillMessage request = signRequest();
  process(request, asker);
  EXPECT_EQ(holder.answer().json(), request.json()) << "passed on as it was read";
  EXPECT_THAT(asker.connection->sent, IsEmpty());
  const auto answer = QuillMessage::initWithReplyMessageForSignMessage(
      /*status=*/true, request.messageID, Bytes{9});
  process(answer, remote());  // who answers is not looked at
  EXPECT_EQ(asker.answer().json(), answer.json());
  EXPECT_EQ(processor.pendingMessages.size(), 0U);
  takeEntries();
  process(answer, holder);
  EXPECT_THAT(asker.connection->sent, IsEmpty());
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:worker not found"));
}

TEST_F(Card, LooksForItsHolderInOrderAndRefusesAnUnauthenticatedFirstOne) {
  const Peer asker = local();
  const Peer gone = holder(/*isAuthenticated=*/true);
  gone.worker->g_inbound_connection.reset();
  const Peer first = holder(/*isAuthenticated=*/false);
  const Peer second = holder(/*isAuthenticated=*/true);
  takeEntries();
  const QuillMessage refusal = ask(signRequest(), asker);
  EXPECT_FALSE(refusal.status);
  EXPECT_EQ(refusal.signedData, Bytes{});
  EXPECT_EQ(takeEntries().front(), "kfy:certificate not found or not authenticated. stopping");
  EXPECT_TRUE(ask(decryptRequest(), asker).decryptedData->empty());
  EXPECT_THAT(second.connection->sent, IsEmpty());
  first.worker->isAuthenticated = true;
  process(signRequest(), asker);
  EXPECT_EQ(first.connection->sent.size(), 1U);
}

TEST_F(Card, RefusesWhatItCannotRelay) {
  const Peer asker = local();
  const Peer holder = this->holder(/*isAuthenticated=*/true);
  EXPECT_FALSE(ask(signRequest(Bytes(20)), asker).status) << "an unknown certificate";
  EXPECT_FALSE(ask(decryptRequest(Bytes{}), asker).status) << "no certificate";
  EXPECT_EQ(ask(signRequest(), holder).signedData, Bytes{}) << "not a local connection";
  QuillMessage withoutID = signRequest();
  withoutID.messageID.reset();
  process(withoutID, asker);
  EXPECT_THAT(asker.connection->sent, ElementsAre("[DATA][ENDDATA]"));
  EXPECT_THAT(holder.connection->sent, IsEmpty());
  EXPECT_EQ(processor.pendingMessages.size(), 0U);
}

}  // namespace
