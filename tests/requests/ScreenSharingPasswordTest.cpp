#include "requests/ScreenSharingPassword.hpp"

#include <set>

#include "requests/RequestsFixture.hpp"

namespace {

class Password : public RequestsInBothModes {
 public:
  Password() {
    using Accounts = fakes::FakeAccounts;
    const auto breaks = [this](auto Accounts::*place) {
      return [this, place](const std::string &number) {
        accounts = {};
        accounts.*place = std::stoi(number);
      };
    };
    actions["nodeError"] = breaks(&Accounts::nodeError);
    actions["records"] = breaks(&Accounts::records);
    actions["refusals"] = breaks(&Accounts::refusals);
    actions["authorization"] = breaks(&Accounts::authorizationStatus);
    actions["right"] = breaks(&Accounts::rightStatus);
    actions["identities"] = breaks(&Accounts::hasIdentity);
    actions["class"] = breaks(&Accounts::accountClass);
    actions["failedCommits"] = breaks(&Accounts::failedCommits);
    transcript.name(R"(
~CREATE far {~REQUEST:"create_user"}
~OF "ephemeral_user_name":"cvnkfyvncuser","message_error_message":
~SENDS dbg:Encoding JSON | dbg:JSON QuillCommandCreateEmphemeralUser Response | ~SENDING
~USER \nMesage Type: 1\nCommand: 6\nephemeralUsername: cvnkfyvncuser\nephemeralPassword: <Set>
~MISSING ~SENDS NO~USER\nerror message: The screen sharing user does not exist~ANSWER"create_user","message_id":"~ID","ephemeral_user_password":"",~OF"The screen sharing user does not exist","status":false}[ENDDATA]
~FAILURE NO~USER\nerror message: Could not set password for screen sharing user\nmessageID: ~ID\n
~FRAME < [DATA]{"type":"response","command":"create_user","message_id":"~ID","ephemeral_user_password":"",~OF"Could not set password for screen sharing user","status":false}[ENDDATA]
~TRIES dbg:setting password for screen sharing | dbg:changing token user password
~AGAIN kfy:rejected password. trying again.
~CHANGED dbg:changing token user password returnStatus:
~SET dbg:changing token user password:
)");
  }
};
INSTANTIATE_TEST_SUITE_P(DebugMode, Password, testing::Bool());

TEST_P(Password, IsSetAndSentBackOrFailsTenTimes) {
  transcript.expect(R"(
> ~CREATE
~BEGINSCreateEmphemeralUser | ~SENDS NO~USER~ANSWER"create_user","message_id":"~ID","ephemeral_user_password":"",~OF"","status":false}[ENDDATA]
> proven far
> records 0
> ~CREATE
~BEGINSCreateEmphemeralUser | ~MISSING
asked for cvnkfyvncuser
> records 2
> ~CREATE
~BEGINSCreateEmphemeralUser | ~MISSING
asked for cvnkfyvncuser
> nodeError 5
> ~CREATE
~BEGINSCreateEmphemeralUser | ~MISSING
> refusals 10
> ~CREATE
~BEGINSCreateEmphemeralUser
10 x kfy:password not allowed.
~SENDS ~FAILURE | ~FRAME | asked for cvnkfyvncuser
> failedCommits 1
> ~CREATE
~BEGINSCreateEmphemeralUser | ~TRIES | ~CHANGED 0 | ~SET ~PASSWORD0 | dbg:changing token user password completed | ~AGAIN
~TRIES | ~CHANGED 1 | ~SET ~PASSWORD1 | dbg:changing token user password completed
~SENDS YES~USER~ANSWER"create_user","message_id":"~ID","ephemeral_user_password":"~BASE64PASSWORD1",~OF"","status":true}[ENDDATA]
asked for cvnkfyvncuser
2 x asked for system.privilege.admin 19 | asked for cvnkfyvncuser
set ~PASSWORD1
> authorization -5
> ~CREATE
~BEGINSCreateEmphemeralUser
10 x ~TRIES | ~AGAIN
~SENDS ~FAILURE
10 x file:Error Creating Initial Authorization: -5
~FRAME | asked for cvnkfyvncuser
> right -60005
> ~CREATE
~BEGINSCreateEmphemeralUser
10 x ~TRIES | ~AGAIN
~SENDS ~FAILURE
10 x file:Copy Rights Unsuccessful: -60005
~FRAME | asked for cvnkfyvncuser
10 x asked for system.privilege.admin 19
> identities 0
> ~CREATE
~BEGINSCreateEmphemeralUser
10 x ~TRIES | dbg:could not find the cvnkfyvncuser. please verify the user exists | ~AGAIN
~SENDS ~FAILURE | ~FRAME | asked for cvnkfyvncuser
10 x asked for system.privilege.admin 19
> class 0
> ~CREATE
~BEGINSCreateEmphemeralUser
10 x ~TRIES | dbg:wrong user type | ~AGAIN
~SENDS ~FAILURE | ~FRAME | asked for cvnkfyvncuser
10 x asked for system.privilege.admin 19 | asked for cvnkfyvncuser
)");
}

TEST_P(Password, OfLettersDigitsAndSignsOfItsLength) {
  const SecretText password = processor.randomAlphanumericStringWithLength(10000);
  EXPECT_EQ(password.reveal().size(), 10000U);
  const std::string alphabet =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&()_+=}{][";
  EXPECT_EQ(std::set<char>(password.reveal().begin(), password.reveal().end()),
            std::set<char>(alphabet.begin(), alphabet.end()));
  EXPECT_TRUE(processor.randomAlphanumericStringWithLength(-1).empty());
}

}  // namespace
