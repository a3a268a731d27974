// What the settings close that the protocol leaves open.

#include "requests/RequestsFixture.hpp"
#include "settings/Settings.hpp"

namespace {

using testing::Contains;
using testing::HasSubstr;

class OptIn : public Requests {
 public:
  static inline const crypto::Identity kCard = fakes::madeIdentity("RSA", "card");
  static inline const crypto::Identity kOther = fakes::madeIdentity("EC", "other");

  static QuillMessage signRequest(const std::size_t bytes = 16) {
    return QuillMessage::initCommandMessageSignData(Bytes(bytes), kCard.certificate.sha1(),
                                                    SecretText());
  }
  static QuillMessage insertRequest() {
    const protocol::CardElement card = encodings::CertificateInfo{
        encodings::base64EncodedString(kCard.certificate.der()), true, true, true, "", {}};
    return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
        protocol::makeCardList({&card, 1}));
  }
  void set(const char *key, fakes::FakeUserDefaults::Value value) {
    defaults.values[std::string("kfyd/") + key] = std::move(value);
  }
  Peer authenticated() {
    Peer made = remote();
    made.worker->isAuthenticated = true;
    return made;
  }
  Peer holder(const crypto::Identity &authenticatedWith = kOther) {
    Peer made = authenticated();
    EXPECT_TRUE(ask(insertRequest(), made).status);
    made.worker->authCertificate = authenticatedWith.certificate.der();
    return made;
  }
  bool isRelayedTo(const Peer &holder) {
    process(signRequest(), local());
    return !holder.connection->takeMessages().empty();
  }

  // What happens, y or n for each case.
  std::string outcomesOf(const QuillMessage &message, const std::vector<Peer> &all) {
    std::string outcomes;
    for (const Peer &peer : all) {
      const auto reply = ask(message, peer);
      EXPECT_TRUE(reply.status || !reply.certificates || reply.certificates->entries().empty());
      outcomes += reply.status ? 'y' : 'n';
    }
    return outcomes;
  }
  // By a stranger, a program of this machine and an authenticated client:
  std::string inserts() {
    return outcomesOf(insertRequest(), {remote(), local(), authenticated()});
  }
  std::string readsTheList() {
    return outcomesOf(QuillMessage::initCommandMessageGetCertificates(),
                      {remote(), local(), authenticated(), holder()});
  }
  // By somebody else first, and then by the holder.
  std::string answers() {
    const Peer holder = this->holder();
    const Peer asker = local();
    const QuillMessage request = signRequest();
    process(request, asker);
    std::string outcomes;
    for (const Peer &peer : {authenticated(), holder}) {
      process(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, request.messageID,
                                                               Bytes{9}),
              peer);
      outcomes += asker.connection->takeMessages().empty() ? 'n' : 'y';
    }
    return outcomes;
  }
  // Its own repetition replaces; then another's.
  std::string repeatsAnID() {
    const Peer holder = this->holder();
    const Peer first = local();
    const QuillMessage request = signRequest();
    std::string outcomes;
    for (const Peer &peer : {first, first, local()}) {
      process(request, peer);
      outcomes += holder.connection->takeMessages().empty() ? 'n' : 'y';
    }
    return outcomes;
  }
  std::string asksTheNewest() {
    holder();
    return isRelayedTo(holder()) ? "y" : "n";
  }
  // A card key; then the key with which the holder has authenticated, by the same certificate and
  // by another; then whether the next holder is asked for it.
  std::string usesTheKey() {
    std::string outcomes;
    for (const auto &identity : {kOther, kCard, fakes::identityOf(kCard.key, "another")}) {
      processor.listHolders.clear();
      outcomes += isRelayedTo(holder(identity)) ? 'y' : 'n';
    }
    return outcomes + (isRelayedTo(holder()) ? 'y' : 'n');
  }
  std::string connects(const Peer &peer, std::chrono::seconds between, int times) {
    std::string outcomes;
    for (int count = 0; count < times; ++count, clock.time += between) {
      const auto before = peer.worker->challenge;
      const auto reply = ask(QuillMessage::initCommandMessageConnectWithLocalhost(), peer);
      const bool isAdmitted = peer.worker->challenge != before;
      EXPECT_EQ(reply.challenge->size(), isAdmitted ? 16U : 0U);
      EXPECT_EQ(reply.errorMessage->empty(), isAdmitted);
      outcomes += isAdmitted ? 'y' : 'n';
    }
    return outcomes;
  }
};

TEST_F(OptIn, SwitchesChangeWhatTheySayAndNothingElse) {
  struct Row {
    const settings::Switch &setting;
    std::string (OptIn::*outcomes)();
    const char *asPrescribed;
    const char *withTheSetting;
  };
  const Row kRows[] = {
      {settings::kInsertRequiresAuthentication, &OptIn::inserts, "yyy", "nny"},
      {settings::kListRequiresAuthentication, &OptIn::readsTheList, "yyyy", "nyyy"},
      {settings::kAnswersOnlyFromHolder, &OptIn::answers, "yn", "ny"},
      {settings::kRefuseRepeatedMessageID, &OptIn::repeatsAnID, "yyy", "yyn"},
      {settings::kNewestRemoteFirst, &OptIn::asksTheNewest, "n", "y"},
      {settings::kRelayAuthenticationKey, &OptIn::usesTheKey, "yyyn", "ynny"},
  };
  for (const Row &row : kRows) {
    SCOPED_TRACE(row.setting.key);
    const bool prescribed = row.setting.valueIfAbsent;
    EXPECT_EQ((this->*row.outcomes)(), row.asPrescribed) << "absent";
    for (const bool value : {!prescribed, prescribed}) {
      processor.listHolders.clear();
      set(row.setting.key, value);
      EXPECT_EQ((this->*row.outcomes)(),
                value == prescribed ? row.asPrescribed : row.withTheSetting);
    }
    processor.listHolders.clear();
  }
}

TEST_F(OptIn, SoManyConnectsAMinuteAreAdmittedOfOneAddress) {
  using namespace std::chrono_literals;
  const Peer one = remote();
  EXPECT_EQ(connects(one, 0s, 5), "yyyyy");
  set(settings::kConnectsPerMinute.key, 2);
  EXPECT_EQ(connects(one, 20s, 5), "yynyy");
  EXPECT_THAT(takeEntries(), Contains(HasSubstr("(limit connectsPerMinute is 2)")));
  const Peer elsewhere = remote();
  elsewhere.connection->host = "192.0.2.8";
  EXPECT_EQ(connects(remote(), 0s, 1) + connects(elsewhere, 0s, 1), "ny");
  clock.time -= 24h;
  EXPECT_EQ(connects(one, 0s, 3), "yyn") << "the clock was set back";
}

TEST(ConnectRate, ForgetsWhoWasHeardOfLongestAgo) {
  requests::ConnectRate rate;
  const platform::Clock::Time start{};
  EXPECT_TRUE(rate.tryAcquire("first", 1, start));
  for (int other = 0; other < 4096; ++other) {
    EXPECT_EQ(rate.tryAcquire("first", 1, start), false);
    EXPECT_TRUE(rate.tryAcquire(std::to_string(other), 1, start + std::chrono::seconds(1)));
  }
  EXPECT_TRUE(rate.tryAcquire("first", 1, start));
}

TEST_F(OptIn, LookUpOfThePairingEndsInTime) {
  set(settings::kPairingSeconds.key, 5);
  const auto reply =
      ask(QuillMessage::initCommandMessageConnectWithCertificate({Bytes(20)}), remote());
  EXPECT_FALSE(reply.status);
  EXPECT_THAT(*reply.errorMessage, HasSubstr("There was no user matching"));
  EXPECT_EQ(tools.calls.size(), 5U);
  EXPECT_EQ(clock.pauses.size(), 4U);
  EXPECT_THAT(takeEntries(), Contains(HasSubstr("(limit pairingSeconds is 5)")));
}

TEST_F(OptIn, WhatWaitsForAnswersIsBounded) {
  const Peer holder = this->holder();
  const Peer asker = local();
  const Peer other = local();
  const auto isRefused = [&](const Peer &from, const QuillMessage &request) {
    process(request, from);
    return !from.connection->takeMessages().empty();
  };
  set(settings::kMaxPendingPerConnection.key, 1);
  set(settings::kMaxPending.key, 3);
  set(settings::kMaxUnsentBytes.key, 1 << 20);
  holder.connection->unsent = (1 << 20) - 32768;
  EXPECT_TRUE(isRefused(asker, signRequest(16384)));
  EXPECT_FALSE(isRefused(asker, signRequest())) << "a short one still fits";
  holder.connection->unsent = 0;
  set(settings::kMaxPendingPerConnection.key, 2);
  const QuillMessage second = signRequest();
  EXPECT_FALSE(isRefused(asker, second));
  EXPECT_FALSE(isRefused(asker, second)) << "what it replaces is not one more";
  EXPECT_FALSE(isRefused(other, signRequest()));
  EXPECT_TRUE(isRefused(asker, signRequest()));
  EXPECT_TRUE(isRefused(other, signRequest()));
  process(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/false, second.messageID, {}),
          holder);
  EXPECT_EQ(asker.connection->takeMessages().size(), 1U);
  EXPECT_FALSE(isRefused(asker, signRequest())) << "an answer makes room";
  EXPECT_EQ(processor.counts.relayed, 5U);
  EXPECT_EQ(processor.counts.refused, 3U);
  for (const auto *bound :
       {&settings::kMaxPendingPerConnection, &settings::kMaxPending, &settings::kMaxUnsentBytes}) {
    EXPECT_EQ(limits.counts().at(bound->key), 1U);
  }
}

TEST_F(OptIn, ElementsThatDecodeToNothingFillNoLog) {
  const Peer stranger = remote();
  stranger.worker->certificates = std::make_shared<const protocol::CardList>(
      std::vector(1500, protocol::CardEntry{"{}", /*hasCertificate=*/true, {}}));
  processor.listHolders.try_emplace(stranger.worker->number, stranger.worker);
  const Peer holder = this->holder();
  takeEntries();
  EXPECT_TRUE(isRelayedTo(holder));
  const auto entries = takeEntries();
  EXPECT_THAT(entries, Contains("kfy:error base64 decoding certificate").Times(1000));
  EXPECT_EQ(entries[1000], "kfy:error base64 decoding certificate (500 more)");
}

}  // namespace
