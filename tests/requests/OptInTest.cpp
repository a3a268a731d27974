// What the settings close that the protocol leaves open: each row with the setting absent, at its
// default and set.

#include <variant>

#include "fakes/MadeKeys.hpp"
#include "requests/RequestsFixture.hpp"
#include "support/Settings.hpp"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

const crypto::Identity &cardKey() {
  static const crypto::Identity made = fakes::madeIdentity("RSA", "card");
  return made;
}
const crypto::Identity &otherKey() {
  static const crypto::Identity made = fakes::madeIdentity("EC", "other");
  return made;
}

QuillMessage insertOf(const crypto::Identity &identity) {
  const std::vector<protocol::CardElement> elements{support::CertificateInfo{
      support::base64EncodeBytes(identity.certificate.der(), /*separateLines=*/false), true, true,
      true, "", std::nullopt}};
  return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(elements));
}

QuillMessage signRequest(const std::size_t bytes = 16) {
  return QuillMessage::initCommandMessageSignData(Bytes(bytes), cardKey().certificate.sha1(),
                                                  SecretText());
}

class OptIn : public Requests {
 public:
  void set(const char *key, fakes::FakeUserDefaults::Value value) {
    defaults.values[std::string("kfyd/") + key] = std::move(value);
  }
  Peer authenticated() {
    Peer made = remote();
    made.worker->isAuthenticated = true;
    return made;
  }
  Peer holder(const crypto::Identity &authenticatedWith = otherKey()) {
    Peer made = authenticated();
    process(insertOf(cardKey()), made);
    EXPECT_TRUE(made.answer().status);
    made.worker->authCertificate = authenticatedWith.certificate.der();
    return made;
  }
  bool mayInsert(const Peer &peer) { return ask(insertOf(cardKey()), peer).status; }
  bool mayList(const Peer &peer) {
    const Peer inserter = holder();
    const auto reply = ask(QuillMessage::initCommandMessageGetCertificates(), peer);
    EXPECT_EQ(reply.certificates->entries().empty(), !reply.status);
    return reply.status;
  }
  bool isRelayedTo(const Peer &holder) {
    const Peer asker = local();
    process(signRequest(), asker);
    const bool isRelayed = !holder.connection->takeMessages().empty();
    EXPECT_TRUE(!isRelayed || asker.connection->sent.empty()) << "either asked or refused";
    return isRelayed;
  }
  bool isTakenFrom(const Peer &answering, const Peer &holder) {
    const Peer asker = local();
    const QuillMessage request = signRequest();
    process(request, asker);
    const auto answer = QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, request.messageID, Bytes{9});
    process(answer, answering);
    const bool isTaken = !asker.connection->takeMessages().empty();
    process(answer, holder);
    EXPECT_EQ(asker.connection->takeMessages().empty(), isTaken) << "the entry stays for the other";
    return isTaken;
  }
  std::vector<bool> connects(const Peer &peer, std::chrono::seconds between, int times) {
    std::vector<bool> admitted;
    for (int count = 0; count < times; ++count, clock.time += between) {
      const auto challenge = peer.worker->challenge;
      process(QuillMessage::initCommandMessageConnectWithLocalhost(), peer);
      const QuillMessage reply = peer.answer();
      EXPECT_FALSE(reply.status);
      admitted.push_back(reply.challenge->size() == 16);
      EXPECT_EQ(peer.worker->challenge != challenge, admitted.back());
      EXPECT_EQ(reply.errorMessage->find("too many") == std::string::npos, admitted.back());
    }
    return admitted;
  }
};

struct Row {
  const char *name;
  const support::Switch &setting;
  bool (*happens)(OptIn &test);
  bool asPrescribed;
  bool withTheSetting;
};

class Switches : public OptIn, public testing::WithParamInterface<Row> {};

TEST_P(Switches, ChangeWhatTheySayAndNothingElse) {
  const Row &row = GetParam();
  const bool prescribed = row.setting.valueIfAbsent;
  EXPECT_EQ(row.happens(*this), row.asPrescribed) << "absent";
  for (const bool value : {prescribed, !prescribed}) {
    processor.workers.clear();
    set(row.setting.key, value);
    EXPECT_EQ(row.happens(*this), value == prescribed ? row.asPrescribed : row.withTheSetting)
        << std::boolalpha << value;
  }
}

INSTANTIATE_TEST_SUITE_P(
    OptIn, Switches,
    testing::Values(
        Row{"InsertByAStranger", support::kInsertRequiresAuthentication,
            [](OptIn &on) { return on.mayInsert(on.remote()); }, true, false},
        Row{"InsertByAProgram", support::kInsertRequiresAuthentication,
            [](OptIn &on) { return on.mayInsert(on.local()); }, true, false},
        Row{"InsertByAClient", support::kInsertRequiresAuthentication,
            [](OptIn &on) { return on.mayInsert(on.authenticated()); }, true, true},
        Row{"ListToAStranger", support::kListRequiresAuthentication,
            [](OptIn &on) { return on.mayList(on.remote()); }, true, false},
        Row{"ListToAProgram", support::kListRequiresAuthentication,
            [](OptIn &on) { return on.mayList(on.local()); }, true, true},
        Row{"ListToAClient", support::kListRequiresAuthentication,
            [](OptIn &on) { return on.mayList(on.authenticated()); }, true, true},
        Row{"AnswerOfAStranger", support::kAnswersOnlyFromHolder,
            [](OptIn &on) {
              const auto holder = on.holder();
              return on.isTakenFrom(on.authenticated(), holder);
            },
            true, false},
        Row{"AnswerOfTheHolder", support::kAnswersOnlyFromHolder,
            [](OptIn &on) {
              const auto holder = on.holder();
              return on.isTakenFrom(holder, on.authenticated());
            },
            true, true},
        Row{"NewestHolderIsAsked", support::kNewestRemoteFirst,
            [](OptIn &on) {
              const auto oldest = on.holder();
              return on.isRelayedTo(on.holder());
            },
            false, true},
        Row{"AuthenticationKeyIsUsed", support::kRelayAuthenticationKey,
            [](OptIn &on) { return on.isRelayedTo(on.holder(cardKey())); }, true, false},
        Row{"AuthenticationKeyOfAnotherCertificateIsUsed", support::kRelayAuthenticationKey,
            [](OptIn &on) {
              return on.isRelayedTo(on.holder(fakes::identityOf(cardKey().key, "another")));
            },
            true, false},
        Row{"NextHolderIsAskedForAnAuthenticationKey", support::kRelayAuthenticationKey,
            [](OptIn &on) {
              const auto first = on.holder(cardKey());
              return on.isRelayedTo(on.holder());
            },
            false, true},
        Row{"CardKeyIsUsed", support::kRelayAuthenticationKey,
            [](OptIn &on) { return on.isRelayedTo(on.holder()); }, true, true}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(OptIn, SoManyConnectsAMinuteAreAdmittedOfOneAddress) {
  using namespace std::chrono_literals;
  const std::vector<bool> all(5, true);
  const Peer one = remote();
  EXPECT_EQ(connects(one, 0s, 5), all);
  set(support::kConnectsPerMinute.key, 2);
  EXPECT_EQ(connects(one, 25s, 5), (std::vector{true, true, false, true, true}));
  EXPECT_THAT(takeEntries(), Contains(HasSubstr("(limit connectsPerMinute is 2)")));
  const Peer samePlace = remote();
  const Peer elsewhere = remote();
  elsewhere.connection->host = "192.0.2.8";
  EXPECT_EQ(connects(samePlace, 0s, 1), std::vector{false});
  EXPECT_EQ(connects(elsewhere, 0s, 1), std::vector{true});
  clock.time -= 24h;
  EXPECT_EQ(connects(one, 0s, 3), (std::vector{true, true, false})) << "the clock was set back";
}

TEST_F(OptIn, LookUpOfThePairingEndsInTime) {
  set(support::kPairingSeconds.key, 5);
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
    const auto refusals = from.connection->takeMessages();
    EXPECT_TRUE(refusals.empty() || refusals.front().signedData == Bytes{});
    return !refusals.empty();
  };
  set(support::kMaxPendingPerConnection.key, 2);
  set(support::kMaxPending.key, 3);
  set(support::kMaxUnsentBytes.key, 1 << 20);
  holder.connection->unsent = (1 << 20) - 32768;
  EXPECT_TRUE(isRefused(asker, signRequest(16384)));
  EXPECT_FALSE(isRefused(asker, signRequest())) << "a short one still fits";
  holder.connection->unsent = 0;
  const QuillMessage second = signRequest();
  EXPECT_FALSE(isRefused(asker, second));
  EXPECT_FALSE(isRefused(other, signRequest()));
  EXPECT_TRUE(isRefused(asker, signRequest()));
  EXPECT_TRUE(isRefused(other, signRequest()));
  process(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/false, second.messageID, {}),
          holder);
  EXPECT_EQ(asker.connection->takeMessages().size(), 1U);
  EXPECT_FALSE(isRefused(asker, signRequest())) << "an answer makes room";
  EXPECT_EQ(processor.counts.relayed, 4U);
  EXPECT_EQ(processor.counts.refused, 3U);
  for (const auto *bound :
       {&support::kMaxPendingPerConnection, &support::kMaxPending, &support::kMaxUnsentBytes}) {
    EXPECT_EQ(limits.counts().at(bound->key), 1U);
  }
  processor.pendingMessages.eraseAllOf(asker.worker);
  EXPECT_EQ(processor.pendingMessages.size(), 1U);
  EXPECT_FALSE(processor.pendingMessages.name(asker.worker));
  EXPECT_TRUE(processor.pendingMessages.name(holder.worker));
}

TEST_F(OptIn, ElementsThatDecodeToNothingFillNoLog) {
  const Peer stranger = remote();
  stranger.worker->certificates = std::make_shared<const protocol::CardList>(
      std::vector(1500, protocol::CardEntry{"{}", /*hasCertificate=*/true, {}}));
  const Peer holder = this->holder();
  takeEntries();
  EXPECT_TRUE(isRelayedTo(holder));
  const auto entries = takeEntries();
  EXPECT_THAT(entries, Contains("kfy:error base64 decoding certificate").Times(1000));
  EXPECT_EQ(entries[1000], "kfy:error base64 decoding certificate (500 more)");
}

}  // namespace
