#include "requests/ScreenSharingPassword.hpp"

#include <algorithm>
#include <set>

#include "requests/RequestsFixture.hpp"

namespace {

using testing::Contains;
using testing::ElementsAre;

class Password : public Requests {
 public:
  QuillMessage create() {
    Peer peer = remote();
    peer.worker->isAuthenticated = true;
    return ask(QuillMessage::initCommandMessageCreateEphemeralUser("whatever"), peer);
  }
};

TEST_F(Password, IsSetAndSentBack) {
  setDebugMode(true);
  accounts.refusals = 2;
  accounts.failedCommits = 1;
  const QuillMessage reply = create();
  EXPECT_TRUE(reply.status);
  EXPECT_EQ(reply.ephemeralUsername, "cvnkfyvncuser");
  EXPECT_EQ(reply.errorMessage, "");
  ASSERT_TRUE(accounts.committed);
  EXPECT_EQ(base::textOf(support::dataFromBase64String(reply.ephemeralPassword->reveal())),
            *accounts.committed);
  EXPECT_EQ(std::set(accounts.offered.begin(), accounts.offered.end()).size(), 4U)
      << "each attempt has a password of its own";
  EXPECT_THAT(accounts.asked,
              ElementsAre("cvnkfyvncuser", "system.privilege.admin 19", "cvnkfyvncuser",
                          "system.privilege.admin 19", "cvnkfyvncuser"));
  const auto entries = takeEntries();
  EXPECT_THAT(entries, Contains("kfy:password not allowed.").Times(2));
  EXPECT_THAT(entries, Contains("kfy:changing token user password: " + *accounts.committed));
}

TEST_F(Password, OfLettersDigitsAndSignsOfItsLength) {
  std::set<char> seen;
  for (int count = 0; count < 200; ++count) {
    const SecretText password = processor.randomAlphanumericStringWithLength(30);
    EXPECT_EQ(password.reveal().size(), 30U);
    seen.insert(password.reveal().begin(), password.reveal().end());
  }
  const std::string alphabet =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&()_+=}{][";
  EXPECT_EQ(seen, std::set<char>(alphabet.begin(), alphabet.end()));
  EXPECT_TRUE(processor.randomAlphanumericStringWithLength(0).empty());
  EXPECT_TRUE(processor.randomAlphanumericStringWithLength(-1).empty());
}

TEST_F(Password, ThatFailsTenTimesIsAnsweredWithoutOne) {
  using Accounts = fakes::FakeAccounts;
  void (*const breakers[])(Accounts &) = {
      [](Accounts &a) { a.refusals = 99; },        [](Accounts &a) { a.authorizationStatus = -5; },
      [](Accounts &a) { a.rightStatus = -60005; }, [](Accounts &a) { a.hasIdentity = false; },
      [](Accounts &a) { a.accountClass = 0; },     [](Accounts &a) { a.failedCommits = 99; },
  };
  for (const auto breakIt : breakers) {
    accounts = {};
    breakIt(accounts);
    const QuillMessage reply = create();
    EXPECT_FALSE(reply.status);
    EXPECT_EQ(reply.ephemeralUsername, "cvnkfyvncuser");
    EXPECT_TRUE(reply.ephemeralPassword->empty());
    EXPECT_EQ(reply.errorMessage, "Could not set password for screen sharing user");
    EXPECT_EQ(accounts.committed, std::nullopt);
    EXPECT_EQ(accounts.offered.size(), 10U);
  }
}

TEST_F(Password, WithoutAuthenticationNothingIsTried) {
  const QuillMessage stranger =
      ask(QuillMessage::initCommandMessageCreateEphemeralUser("x"), remote());
  EXPECT_FALSE(stranger.status);
  EXPECT_EQ(stranger.ephemeralUsername, "cvnkfyvncuser");
  EXPECT_EQ(stranger.errorMessage, "");
  EXPECT_EQ(accounts.opened, 0);
  EXPECT_EQ(accounts.offered.size(), 0U);
}

}  // namespace
