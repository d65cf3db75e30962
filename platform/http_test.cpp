#include "platform/http.h"

#include <cstdlib>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "testing/http_server.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

using namespace std::chrono_literals;
using fixtures::CertificateAuthority;
using fixtures::HttpServer;
using fixtures::ReceivedRequest;
using fixtures::ServerAnswer;

HttpServer::Handler always(ServerAnswer answer) {
    return [answer = std::move(answer)](const ReceivedRequest&) { return answer; };
}

ServerAnswer redirectTo(std::string location, int status = 302) {
    return {.status = status, .headers = {{"Location", std::move(location)}}};
}

/// Trusts an authority of its own and no proxy.
class Http : public testing::Test {
  protected:
    Http() {
        std::ofstream(trusted) << authority.certificate();
        setenv("SSL_CERT_FILE", trusted.c_str(), 1);
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}) {
            unsetenv(name);
        }
    }
    ~Http() override { unsetenv("SSL_CERT_FILE"); }

    static void expectFailure(const Result<HttpResponse>& result, URLErrorCode code,
                              std::string_view host = "127.0.0.1") {
        ASSERT_FALSE(result) << result.value().status;
        EXPECT_EQ(result.error().domain, NSURLErrorDomain);
        EXPECT_EQ(result.error().code, code) << result.error().localizedDescription;
        EXPECT_NE(result.error().localizedDescription.find(host), std::string::npos)
            << result.error().localizedDescription;
    }

    CertificateAuthority authority;
    fixtures::TemporaryFolder folder;
    std::filesystem::path trusted = folder.path() / "trusted.pem";
};

TEST_F(Http, BodiesArriveWholeHoweverTheyAreSent) {
    std::string large(std::size_t{3} << 20U, '\0');
    for (std::size_t place = 0; place < large.size(); ++place) {
        large[place] = static_cast<char>(place * 31 + place / 257);
    }
    for (const auto& body : {std::string(), std::string("{}"), large}) {
        for (const bool chunked : {false, true}) {
            for (const bool secure : {false, true}) {
                const HttpServer server(always({.body = body, .chunked = chunked}),
                                        secure ? std::optional(authority.issue()) : std::nullopt);
                const auto whole = sendHttpRequest({.url = server.url("/feed?version=1")});
                ASSERT_TRUE(whole) << whole.error().localizedDescription;
                EXPECT_EQ(whole.value().status, 200);
                EXPECT_TRUE(whole.value().body == body);
                EXPECT_EQ(whole.value().contentLength.has_value(), !chunked);
                EXPECT_EQ(server.requests().at(0).target, "/feed?version=1");
            }
        }
    }
}

TEST_F(Http, RequestsCarryTheirMethodHeadersAndBody) {
    const HttpServer server(always({.status = 204}), authority.issue());
    const std::string body("{\"k\":\0\"v\"}", 10);
    const auto answer =
        sendHttpRequest({.url = server.url("/", "localhost"),
                         .method = HttpMethod::Post,
                         .headers = {{"Content-Type", "application/json"}, {"X-Empty", ""}},
                         .body = body});
    ASSERT_TRUE(answer) << answer.error().localizedDescription;
    EXPECT_EQ(answer.value().status, 204);
    const ReceivedRequest request = server.requests().at(0);
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.body, body);
    EXPECT_EQ(request.header("content-type"), "application/json");
    EXPECT_TRUE(request.headers.contains("x-empty"));
    const auto split = sendHttpRequest({.url = server.url("/"), .headers = {{"X", "a\r\nY: b"}}});
    expectFailure(split, NSURLErrorUnknown);
    ASSERT_TRUE(sendHttpRequest(
        {.url = server.url("/"), .resumption = HttpResumption{4, "\"v2\"\r\nX: y"}}));
    EXPECT_FALSE(server.requests().at(1).headers.contains("x"));
}

TEST_F(Http, AnswersThatAreCutLieOrStallAreErrors) {
    struct Faulty {
        const char* situation;
        ServerAnswer answer;
        URLErrorCode code;
    };
    const std::string body(1000, 'b');
    const Faulty table[] = {
        {"cut", {.body = body, .cutAfter = 500}, NSURLErrorNetworkConnectionLost},
        {"cut chunks",
         {.body = body, .chunked = true, .cutAfter = 500},
         NSURLErrorNetworkConnectionLost},
        {"no answer", {.raw = ""}, NSURLErrorNetworkConnectionLost},
        {"no HTTP", {.raw = "SSH-2.0-server\r\n\r\n"}, NSURLErrorBadServerResponse},
        {"silent", {.isSilent = true}, NSURLErrorTimedOut},
        {"too large by its own word, and stalled",
         {.body = "b", .announcedLength = 1501, .stallAfter = 1},
         NSURLErrorDataLengthExceedsMaximum},
        {"malformed redirect", redirectTo("https://:x:/"), NSURLErrorBadServerResponse},
        {"a part",
         {.status = 206, .headers = {{"Content-Range", "bytes 0-9/10"}}, .body = "b"},
         NSURLErrorCannotParseResponse},
    };
    for (const Faulty& faulty : table) {
        for (const bool secure : {false, true}) {
            SCOPED_TRACE(std::string(faulty.situation) + (secure ? " over TLS" : ""));
            const HttpServer server(always(faulty.answer),
                                    secure ? std::optional(authority.issue()) : std::nullopt);
            const auto answer = sendHttpRequest({.url = server.url("/")},
                                                {.stallTimeout = 200ms, .maximumBodySize = 1500});
            expectFailure(answer, faulty.code);
        }
    }
}

TEST_F(Http, OnlyHttpsAndLoopbackAddressesAreConnectedTo) {
    const std::string longLabel(64, 'a');
    const std::pair<std::string, URLErrorCode> table[] = {
        {"http://update.example/", NSURLErrorUnsupportedURL},
        {"http://127.0.0.1.update.example/", NSURLErrorUnsupportedURL},
        {"http://localhost.update.example/", NSURLErrorUnsupportedURL},
        {"http://localhost@update.example/", NSURLErrorUnsupportedURL},
        {"http://128.0.0.1/", NSURLErrorUnsupportedURL},
        {"http://[::2]/", NSURLErrorUnsupportedURL},
        {"ftp://localhost/", NSURLErrorUnsupportedURL},
        {"file:///etc/passwd", NSURLErrorUnsupportedURL},
        {"", NSURLErrorBadURL},
        {"localhost", NSURLErrorBadURL},
        {"https://", NSURLErrorBadURL},
        {"https://local host/", NSURLErrorBadURL},
        {"http://127.0.0.1:1/", NSURLErrorCannotConnectToHost},
        {"http://127.9.8.7:1/", NSURLErrorCannotConnectToHost},
        {"http://LOCALHOST:1/", NSURLErrorCannotConnectToHost},
        {"http://[::1]:1/", NSURLErrorCannotConnectToHost},
        {"https://localhost:1/", NSURLErrorCannotConnectToHost},
        // No resolver is asked for a name that is longer than names can be.
        {"https://" + longLabel + ".example/", NSURLErrorCannotFindHost},
    };
    for (const auto& [url, code] : table) {
        SCOPED_TRACE(url);
        expectFailure(sendHttpRequest({.url = url}), code, "");
    }
}

TEST_F(Http, RedirectsAreFollowedUnlessTheyLeadToPlainHttp) {
    const HttpServer plain(always({.body = "plain"}));
    const HttpServer secure(
        [&](const ReceivedRequest& request) {
            return request.target == "/down"   ? redirectTo(plain.url("/"))
                   : request.target == "/away" ? redirectTo("http://update.example/")
                   : request.target == "/file" ? redirectTo("file:///etc/passwd")
                   : request.target == "/a/b"  ? redirectTo("../c", 308)
                   : request.target == "/c"
                       ? redirectTo("//localhost:" + std::to_string(secure.port()) + "/d?e", 301)
                       : ServerAnswer{.body = "reached " + request.target};
        },
        authority.issue());
    for (const char* path : {"/down", "/away", "/file"}) {
        SCOPED_TRACE(path);
        expectFailure(sendHttpRequest({.url = secure.url(path)}), NSURLErrorUnsupportedURL);
    }
    EXPECT_TRUE(plain.requests().empty());

    const HttpServer upwards(always(redirectTo(secure.url("/a/b"))));
    const auto answer = sendHttpRequest({.url = upwards.url("/")});
    ASSERT_TRUE(answer) << answer.error().localizedDescription;
    EXPECT_EQ(answer.value().body, "reached /d?e");
    EXPECT_EQ(answer.value().url, secure.url("/d?e", "localhost"));
}

TEST_F(Http, RedirectedPostsAndCredentialsGoOnlyWhereTheyBelong) {
    struct Case {
        int status;
        bool sameOrigin;
        const char* method;
        const char* body;
        const char* authorization;
    };
    for (const Case& expected :
         {Case{302, true, "GET", "", "secret"}, Case{303, false, "GET", "", ""},
          Case{307, true, "POST", "body", "secret"}, Case{308, false, "POST", "body", ""}}) {
        const HttpServer other(always({}));
        const HttpServer first([&](const ReceivedRequest& request) {
            return request.target == "/"
                       ? redirectTo(expected.sameOrigin ? "/next" : other.url("/"), expected.status)
                       : ServerAnswer{};
        });
        ASSERT_TRUE(sendHttpRequest(
            {.url = first.url("/"),
             .method = HttpMethod::Post,
             .headers = {{"Authorization", "secret"}, {"Content-Type", "text/plain"}},
             .body = "body"}));
        const auto request = expected.sameOrigin ? first.requests().at(1) : other.requests().at(0);
        EXPECT_EQ(request.method, expected.method) << expected.status;
        EXPECT_EQ(request.body, expected.body) << expected.status;
        EXPECT_EQ(request.header("authorization"), expected.authorization) << expected.status;
        EXPECT_EQ(request.header("content-type").empty(), request.body.empty());
    }
}

TEST_F(Http, CertificateProblemsAreToldApart) {
    const auto now = std::chrono::system_clock::now();
    const CertificateAuthority stranger;
    const std::pair<fixtures::ServerIdentity, URLErrorCode> table[] = {
        {stranger.issue(), NSURLErrorServerCertificateUntrusted},
        {authority.issue("DNS:update.example"), NSURLErrorServerCertificateUntrusted},
        {authority.issue("IP:127.0.0.1", now - 240h), NSURLErrorServerCertificateHasBadDate},
        {authority.issue("IP:127.0.0.1", now + 240h), NSURLErrorServerCertificateHasBadDate},
    };
    for (const auto& [identity, code] : table) {
        const HttpServer server(always({}), identity);
        expectFailure(sendHttpRequest({.url = server.url("/")}), code);
        EXPECT_TRUE(server.requests().empty());
    }
    std::filesystem::remove(trusted);
    const HttpServer server(always({}), authority.issue());
    expectFailure(sendHttpRequest({.url = server.url("/")}), NSURLErrorSecureConnectionFailed);
}

TEST_F(Http, TransfersEndSoonAfterTheyAreCancelled) {
    enum class During { Handshake, Wait, Body };
    for (const During during : {During::Handshake, During::Wait, During::Body}) {
        const HttpServer server(always(during == During::Wait
                                           ? ServerAnswer{.isSilent = true}
                                           : ServerAnswer{.body = "body", .stallAfter = 1}));
        // A plain server waits for the rest of what it takes for a request.
        const std::string url =
            during == During::Handshake ? "https" + server.url("/").substr(4) : server.url("/");
        std::stop_source source;
        std::chrono::steady_clock::time_point stopped;
        std::jthread canceller([&] {
            during == During::Handshake ? server.waitForConnections(1) : server.waitForStall();
            stopped = std::chrono::steady_clock::now();
            source.request_stop();
        });
        const auto answer = sendHttpRequest({.url = url}, {}, source.get_token());
        canceller.join();
        EXPECT_LT(std::chrono::steady_clock::now() - stopped, 500ms);
        expectFailure(answer, NSURLErrorCancelled);
    }
}

TEST_F(Http, ConnectingHasALimitOfItsOwn) {
    const HttpServer server(always({}));
    expectFailure(
        sendHttpRequest({.url = "https" + server.url("/").substr(4)}, {.connectTimeout = 50ms}),
        NSURLErrorTimedOut);
}

TEST_F(Http, APartThatBeginsElsewhereIsRefusedBeforeItsFirstByte) {
    for (const char* range : {"bytes 3-9/10", "bytes */10", "items 4-9/10", "bytes 4", ""}) {
        const HttpServer server(
            always({.status = 206, .headers = {{"Content-Range", range}}, .body = "456789"}));
        const auto answer =
            streamHttpBody({.url = server.url("/"), .resumption = HttpResumption{4, "\"v\""}},
                           {.begin = {}, .receive = [](std::string_view bytes) {
                                ADD_FAILURE() << bytes;
                                return std::optional<Error>();
                            }});
        expectFailure(answer, NSURLErrorCannotParseResponse);
    }
}

TEST_F(Http, AReceiverEndsTheTransferWithItsOwnError) {
    const HttpServer server(always({.body = "body", .stallAfter = 2}));
    const auto refuse = [](const auto&) { return std::optional(Error{"disk", 28, "full"}); };
    const auto take = [](const auto&) { return std::optional<Error>(); };
    for (const HttpBodyReceiver& receiver :
         {HttpBodyReceiver{refuse, take}, HttpBodyReceiver{take, refuse}}) {
        const auto answer = streamHttpBody({.url = server.url("/")}, receiver);
        ASSERT_FALSE(answer);
        EXPECT_EQ(answer.error().domain, "disk");
    }
    const HttpServer missing(always({.status = 404, .body = "not here", .stallAfter = 2}));
    const auto answer = streamHttpBody({.url = missing.url("/")}, {refuse, refuse});
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer.value().status, 404);
}

TEST(ResumptionValidators, AreStrongTagsElseDates) {
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    EXPECT_EQ(resumptionValidator({.entityTag = "\"a\"", .lastModified = date}), "\"a\"");
    EXPECT_EQ(resumptionValidator({.entityTag = "W/\"a\"", .lastModified = date}), date);
    EXPECT_EQ(resumptionValidator({.entityTag = "W/\"a\""}), "");
}

TEST_F(Http, ProxiesOfTheEnvironmentServeAllButLoopbackHosts) {
    const HttpServer proxy(always({.status = 403}));
    const HttpServer server(always({.body = "direct"}));
    setenv("https_proxy", proxy.url("").c_str(), 1);
    setenv("http_proxy", proxy.url("").c_str(), 1);
    EXPECT_EQ(sendHttpRequest({.url = server.url("/")}).value().body, "direct");
    EXPECT_TRUE(proxy.requests().empty());
    expectFailure(sendHttpRequest({.url = "https://update.example/"}),
                  NSURLErrorNetworkConnectionLost, "update.example");
    EXPECT_EQ(proxy.requests().at(0).method, "CONNECT");
    unsetenv("https_proxy");
    unsetenv("http_proxy");
}

}  // namespace
}  // namespace teravolant::platform
