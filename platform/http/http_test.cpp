#include "platform/http/http.h"

#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

#include "platform/core/error.h"
#include "platform/core/http_error.h"
#include "platform/system/application.h"
#include "tests/fixtures/http_server.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {

using namespace std::chrono_literals;
using namespace fixtures;
using enum HttpError::Code;

/// Trusts only its own certificate authority and uses no proxy.
class Http : public testing::Test {
  protected:
    Http() {
        folder.write("trusted.pem", authority.certificate());
        setenv("SSL_CERT_FILE", trusted.c_str(), 1);
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}) {
            unsetenv(name);
        }
    }

    static HttpServer::Handler always(const ServerAnswer& answer) {
        return [=](const ReceivedRequest&) { return answer; };
    }
    static ServerAnswer redirectTo(const std::string& location, int status = 302) {
        return {.status = status, .headers = {{"Location", location}}};
    }
    static void expectFailure(const Result<HttpResponse>& result, HttpError::Code code,
                              std::string_view host = "127.0.0.1") {
        ASSERT_FALSE(result) << result->status;
        const std::string told = printedForm(result.error());
        EXPECT_EQ(result.error().domain, kHttpErrorDomain);
        EXPECT_EQ(result.error().code, code) << told;
        EXPECT_NE(told.find(host), told.npos) << told;
    }

    static Result<HttpResponse> get(const std::string& url) {
        return sendHttpRequest({.url = url}, {}, transferOverHttp);
    }

    CertificateAuthority authority;
    TemporaryFolder folder;
    std::filesystem::path trusted = folder.path() / "trusted.pem";
};

TEST_F(Http, FailsForFaultyResponses) {
    struct Faulty {
        const char* situation;
        ServerAnswer answer;
        HttpError::Code code;
        std::uint64_t resumedAt = 0;
    };
    const std::string body(1000, 'b');
    const std::string longHeader = "A: " + std::string(8000, 'b') + "\r\n";
    const auto part = [](const char* range) {
        return ServerAnswer{.status = 206, .headers = {{"Content-Range", range}}, .body = "b"};
    };
    const Faulty table[] = {
        {"cut", {.body = body, .cutAfter = 500}, connectionLost},
        {"cut chunks", {.body = body, .chunked = true, .cutAfter = 500}, connectionLost},
        {"no response", {.raw = ""}, connectionLost},
        {"no HTTP", {.raw = "SSH-2.0-server\r\n\r\n"}, badResponse},
        {"silent", {.isSilent = true}, timedOut},
        {"stalled", {.body = body, .stallAfter = 500}, timedOut},
        {"announced", {.raw = "HTTP/1.1 200 OK\r\nContent-Length: 1501\r\n\r\nb"}, bodyTooLarge},
        {"endless headers", {.raw = "HTTP/1.1 200 OK\r\n", .repeated = longHeader}, badResponse},
        {"endless interim responses",
         {.raw = "", .repeated = "HTTP/1.1 102 Wait\r\n" + longHeader + "\r\n"},
         badResponse},
        {"an endless chunk extension",
         {.raw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1", .repeated = ";a"},
         timedOut},
        {"malformed redirect", redirectTo("https://:x:/"), badResponse},
        {"unrequested part", part("bytes 0-9/10"), unexpectedRange},
        {"another part", part("bytes 3-9/10"), unexpectedRange, 4},
        {"part without a start", part("bytes */10"), unexpectedRange, 4},
        {"part in other units", part("items 4-9/10"), unexpectedRange, 4},
        {"part without an end", part("bytes 4"), unexpectedRange, 4},
    };
    for (const Faulty& faulty : table) {
        for (const bool secure : {false, true}) {
            SCOPED_TRACE(std::string(faulty.situation) + (secure ? " over TLS" : ""));
            const HttpServer server(always(faulty.answer),
                                    secure ? std::optional(authority.issue()) : std::nullopt);
            const auto response = sendHttpRequest(
                {.url = server.url("/"), .resumption = HttpResumption{faulty.resumedAt, "\"v\""}},
                {.stallTimeout = 200ms, .maximumBodySize = 1500}, transferOverHttp);
            expectFailure(response, faulty.code);
        }
    }
}

TEST_F(Http, ConnectsOnlyToHttpsAndLoopback) {
    // The label of the last host is too long for DNS, so that no resolver is contacted.
    const std::pair<HttpError::Code, std::vector<std::string>> table[] = {
        {unsupportedUrl,
         {"http://127.0.0.1.update.example/", "http://localhost@update.example/",
          "file:///etc/passwd"}},
        {badUrl, {"localhost", "https://", "https://local host/"}},
        {cannotConnectToHost, {"http://127.9.8.7:1/", "http://LOCALHOST:1/", "http://[::1]:1/"}},
        {cannotFindHost, {"https://" + std::string(64, 'a') + ".example/"}}};
    for (const auto& [code, urls] : table) {
        for (const std::string& url : urls) {
            SCOPED_TRACE(url);
            expectFailure(get(url), code, "");
        }
    }
}

TEST_F(Http, FollowsRedirectsExceptToPlainHttp) {
    const HttpServer plain(always({}));
    const HttpServer secure(
        [&](const ReceivedRequest& request) {
            return request.target == "/down"   ? redirectTo(plain.url("/"))
                   : request.target == "/file" ? redirectTo("file:///etc/passwd")
                   : request.target == "/a/b"  ? redirectTo("../c", 308)
                   : request.target == "/c"
                       ? redirectTo(secure.url("/d?e", "localhost").substr(6), 301)
                       : ServerAnswer{.body = "reached " + request.target};
        },
        authority.issue());
    for (const char* path : {"/down", "/file"}) {
        expectFailure(get(secure.url(path)), unsupportedUrl);
    }
    EXPECT_TRUE(plain.requests().empty());

    const HttpServer upwards(always(redirectTo(secure.url("/a/b"))));
    const auto response = get(upwards.url("/"));
    ASSERT_TRUE(response) << printedForm(response.error());
    EXPECT_EQ(response->body, "reached /d?e");
    EXPECT_EQ(response->url, secure.url("/d?e", "localhost"));
}

TEST_F(Http, DropsBodiesAndCredentialsOnRedirects) {
    for (const auto& [status, sameOrigin] :
         {std::pair{302, true}, {303, false}, {307, true}, {308, false}}) {
        SCOPED_TRACE(status);
        const HttpServer other(always({}));
        const HttpServer first([&, target = sameOrigin ? "/next" : other.url("/"),
                                code = status](const ReceivedRequest& request) {
            return request.target == "/" ? redirectTo(target, code) : ServerAnswer{};
        });
        ASSERT_TRUE(sendHttpRequest(
            {.url = first.url("/"),
             .method = HttpMethod::Post,
             .headers = {{"Authorization", "secret"}, {"Content-Type", "text/plain"}},
             .body = "body"},
            {}, transferOverHttp));
        const bool staysAPost = status >= 307;
        const auto request = (sameOrigin ? first : other).requests().back();
        EXPECT_EQ(request.method, staysAPost ? "POST" : "GET");
        EXPECT_EQ(request.body, staysAPost ? "body" : "");
        EXPECT_EQ(request.header("Content-Type"), staysAPost ? "text/plain" : "");
        EXPECT_EQ(request.header("Authorization"), sameOrigin ? "secret" : "");
    }
}

TEST_F(Http, DistinguishesCertificateFailures) {
    const auto now = std::chrono::system_clock::now();
    const std::pair<ServerIdentity, HttpError::Code> table[] = {
        {CertificateAuthority().issue(), certificateUntrusted},
        {authority.issue("DNS:update.example"), certificateUntrusted},
        {authority.issue("IP:127.0.0.1", now - 240h), certificateHasBadDate},
        {authority.issue("IP:127.0.0.1", now + 240h), certificateHasBadDate},
    };
    for (const auto& [identity, code] : table) {
        const HttpServer server(always({}), identity);
        expectFailure(get(server.url("/")), code);
        EXPECT_TRUE(server.requests().empty());
    }
    std::filesystem::remove(trusted);
    const HttpServer server(always({}), authority.issue());
    expectFailure(get(server.url("/")), certificatesUnreadable);
}

TEST_F(Http, UsesProxiesExceptForLoopback) {
    const HttpServer proxy(always({.status = 403}));
    const HttpServer server(always({.body = "direct"}));
    setenv("https_proxy", proxy.url("").c_str(), 1);
    setenv("http_proxy", proxy.url("").c_str(), 1);
    EXPECT_EQ(get(server.url("/"))->body, "direct");
    expectFailure(get("https://update.example/"), connectionLost, "update.example");
    ASSERT_EQ(proxy.requests().size(), 1U);
    EXPECT_EQ(proxy.requests()[0].method, "CONNECT");
}

}  // namespace teravolant::platform
