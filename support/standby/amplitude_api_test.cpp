#include "support/standby/amplitude_api.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <regex>

#include <gtest/gtest.h>

#include "tests/fixtures/http_server.h"
#include "tests/fixtures/program.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant {

using namespace fixtures;

/// A program that posts one event to a server of the test.
class AnalyticsService : public testing::Test {
  protected:
    AnalyticsService() { _folder.write("trusted.pem", _authority.certificate()); }

    void respondWith(const ServerAnswer& response) {
        _server.emplace([response](const ReceivedRequest&) { return response; },
                        _authority.issue());
    }

    /// With `threads`, the program ends at once while that many threads still post.
    Program sender(const std::string& threads = "") {
        const std::string folder = _folder.path();
        return Program("env HOME=" + folder + " XDG_CONFIG_HOME=" + folder +
                       " SSL_CERT_FILE=" + folder + "/trusted.pem " STANDBY_DRIVER " " +
                       _server->url(" ", "localhost").substr(8) + threads + " 2>&1");
    }

    /// Returns the line that the program writes to the console log for the response.
    std::string consoleLine() {
        Program program = sender();
        const pid_t process = std::stoi(program.readLine());
        std::string line = program.readLine();
        kill(process, SIGTERM);
        EXPECT_EQ(program.finish(), 0);
        return line;
    }

    CertificateAuthority _authority;
    TemporaryFolder _folder;
    std::optional<HttpServer> _server;
};

TEST_F(AnalyticsService, ReceivesCompleteEvent) {
    respondWith({.body = "success"});
    const std::time_t before = std::time(nullptr);
    consoleLine();
    const auto requests = _server->requests();
    ASSERT_EQ(requests.size(), 1U) << "a null event must not be posted";
    EXPECT_EQ(requests[0].method + " " + requests[0].target, "POST /2/httpapi");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].header("Accept"), "application/json");
    const std::regex form(
        R"re(\{"api_key":"7c41e0b29a5d8f36e2b4c9170d6a3f58","events":\[\{"app_version":"UNSET",)re"
        R"re("device_id":"\{[-0-9A-F]{36}\}","device_model":"Desktop App",)re"
        R"re("event_properties":\{"a":"é"\},"event_type":"sent","os_name":"osx",)re"
        R"re("os_version":"\d+\.\d+","platform":"osx","time":"(\d{13})"\}\]\})re");
    std::smatch event;
    ASSERT_TRUE(std::regex_match(requests[0].body, event, form)) << requests[0].body;
    EXPECT_LE(before, std::stoll(event[1]) / 1000);
    EXPECT_GE(std::time(nullptr), std::stoll(event[1]) / 1000);
}

TEST_F(AnalyticsService, LogsEveryResponse) {
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
    for (const auto& [response, shown] : table) {
        respondWith(response);
        const std::regex form(".*\\] AmplitudeApi::answerReceived " + shown);
        const std::string line = consoleLine();
        EXPECT_TRUE(std::regex_match(line, form)) << line << "\ninstead of " << shown;
    }
}

TEST_F(AnalyticsService, DoesNotDelayExit) {
    respondWith({.isSilent = true});
    const auto start = std::chrono::steady_clock::now();
    Program program = sender();
    const pid_t process = std::stoi(program.readLine());
    _server->waitForStall();
    kill(process, SIGTERM);
    EXPECT_EQ(program.finish(), 0);
    EXPECT_EQ(sender("3").finish(), 0);
    // Longer than any program here takes, and shorter than a request to a silent server would last.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace teravolant
