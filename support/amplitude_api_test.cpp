#include "support/amplitude_api.h"

#include <sys/utsname.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <future>
#include <regex>

#include <gtest/gtest.h>

#include "testing/http_server.h"
#include "testing/program.h"
#include "testing/temporary_folder.h"

namespace teravolant {
namespace {

using fixtures::HttpServer;
using fixtures::Program;
using fixtures::ReceivedRequest;
using fixtures::ServerAnswer;
using platform::JsonValue;

/// A program that sends one event to a service, whose answer is the test's.
class AnalyticsService : public testing::Test {
  protected:
    AnalyticsService() { std::ofstream(_trusted) << _authority.certificate(); }

    void answer(const ServerAnswer& answer) {
        _server.emplace([answer](const ReceivedRequest&) { return answer; }, _authority.issue());
    }

    /// `end` is the program's own word for how it ends.
    Program sender(const std::string& end) {
        return Program("env HOME=" + _folder.path().string() + " XDG_CONFIG_HOME=" +
                       _folder.path().string() + " SSL_CERT_FILE=" + _trusted.string() +
                       " " STANDBY_DRIVER " localhost:" + std::to_string(_server->port()) + " " +
                       end + " 2>&1");
    }

    /// What the program writes to the console log when the answer is there.
    std::string consoleLine(const std::function<void()>& beforeTheAnswer = [] {}) {
        Program program = sender("late-loop");
        const pid_t process = std::stoi(program.readLine());
        EXPECT_EQ(program.readLine(), "sent");
        beforeTheAnswer();
        EXPECT_EQ(program.readLine(), "loop") << "something came from another thread";
        std::string line = program.readLine();
        kill(process, SIGTERM);
        EXPECT_EQ(program.finish(), 0);
        return line;
    }

    fixtures::CertificateAuthority _authority;
    fixtures::TemporaryFolder _folder;
    std::filesystem::path _trusted = _folder.path() / "trusted.pem";
    std::optional<HttpServer> _server;
};

TEST_F(AnalyticsService, ReceivesAnEventWithAllThatItNeeds) {
    answer({.body = "success"});
    const std::time_t before = std::time(nullptr);
    // Of two programs, both on a device that is not known yet.
    const auto other = std::async(std::launch::async, [this] { return consoleLine(); });
    consoleLine();
    other.wait();
    ASSERT_EQ(_server->requests().size(), 2U) << "a third one has no event";
    const std::string otherBody = _server->requests().at(1).body;
    const ReceivedRequest request = _server->requests().at(0);
    EXPECT_EQ(request.method + " " + request.target, "POST /2/httpapi");
    EXPECT_EQ(request.header("content-type"), "application/json");
    EXPECT_EQ(request.header("accept"), "application/json");

    const auto body = platform::parseJson(request.body);
    ASSERT_TRUE(body) << request.body;
    EXPECT_EQ(serialiseJson(body.value()).value(), request.body) << "not compact";
    const JsonValue::Object& event = *body.value().object()->at("events").array()->at(0).object();
    const std::string time = *event.at("time").text();
    EXPECT_EQ(time.size(), 13U);
    EXPECT_LE(before, std::stoll(time) / 1000);
    EXPECT_GE(std::time(nullptr), std::stoll(time) / 1000);
    utsname system{};
    ASSERT_EQ(uname(&system), 0);
    const std::string osVersion = *event.at("os_version").text();
    EXPECT_TRUE(std::string_view(system.release).starts_with(osVersion + ".")) << osVersion;
    EXPECT_EQ(event.at("device_id").text()->size(), 38U);
    EXPECT_NE(otherBody.find(*event.at("device_id").text()), std::string::npos);
    const JsonValue::Object expected{{"time", time},
                                     {"os_version", osVersion},
                                     {"device_id", event.at("device_id")},
                                     {"event_type", "sent"},
                                     {"device_model", "Desktop App"},
                                     {"app_version", "UNSET"},
                                     {"platform", "osx"},
                                     {"os_name", "osx"},
                                     {"event_properties", JsonValue::Object{{"a", "é"}}}};
    EXPECT_EQ(*body.value().object(),
              (JsonValue::Object{{"api_key", "7c41e0b29a5d8f36e2b4c9170d6a3f58"},
                                 {"events", JsonValue::Array{expected}}}));
}

TEST_F(AnalyticsService, HasItsAnswerOnTheConsoleWhateverThatIs) {
    const std::string failure = ".*“localhost:[0-9]+”.*";
    const std::pair<ServerAnswer, std::string> table[] = {
        {{.body = "{\"code\":200}"}, R"(\{"code":200\})"},
        {{.status = 400, .body = "no api_key é"}, "no api_key é"},
        {{.status = 206, .body = "a part"}, "a part"},
        {{}, ""},
        {{.body = "\xFF"}, R"(\(null\))"},
        {{.body = std::string(2'000'000, 'x')}, failure},
        {{.body = "1234", .cutAfter = 2}, failure},
        {{.raw = ""}, failure},
    };
    for (const auto& [answered, shown] : table) {
        answer(answered);
        const std::string line = consoleLine();
        EXPECT_TRUE(
            std::regex_match(line, std::regex(".*\\] AmplitudeApi::answerReceived " + shown)))
            << line << "\ninstead of " << shown;
    }
    answer({.body = "late", .isSilent = true});
    const std::string line = consoleLine([this] {
        _server->waitForStall();
        _server->release();
    });
    EXPECT_TRUE(line.ends_with(" late")) << line;
}

TEST_F(AnalyticsService, HoldsUpNoProgramThatEndsBeforeTheAnswer) {
    // Longer than any program here takes, and shorter than a request to a silent server would last.
    constexpr std::chrono::seconds kPatience(30);
    answer({.isSilent = true});
    const auto start = std::chrono::steady_clock::now();
    for (const char* end : {"loop", "exit"}) {
        Program program = sender(end);
        const pid_t process = std::stoi(program.readLine());
        _server->waitForStall();
        kill(process, SIGTERM);
        EXPECT_EQ(program.finish(), 0) << end;
    }
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(sender("at-once").finish(), 0);
        EXPECT_EQ(sender("senders").finish(), 0);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience);
}

}  // namespace
}  // namespace teravolant
