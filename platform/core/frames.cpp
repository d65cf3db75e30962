#include "platform/core/frames.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/core/error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

constexpr int kHexadecimal = 16;

template <typename Number>
std::optional<Number> numberIn(std::string_view text, int base = 10) {
    Number number{};
    const auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, base);
    return failure == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                      : std::nullopt;
}

void addIfPresent(Fields& fields, const char* name, const std::optional<std::string>& value) {
    if (value && isHeaderText(*value)) {
        fields.emplace_back(name, *value);
    }
}

/// Reads the fields of one payload. A field that is missing or malformed makes it invalid, unless
/// it is optional and missing.
class FieldReader {
  public:
    explicit FieldReader(std::string_view payload) {
        if (auto fields = decodedFields(payload)) {
            _fields = *std::move(fields);
        } else {
            isValid = false;
        }
    }

    [[nodiscard]] const Fields& fields() const { return _fields; }

    [[nodiscard]] std::optional<std::string> optionalText(std::string_view name) const {
        for (const auto& [fieldName, value] : _fields) {
            if (fieldName == name) {
                return value;
            }
        }
        return std::nullopt;
    }

    std::string text(std::string_view name) {
        const auto value = optionalText(name);
        isValid = isValid && value;
        return value.value_or("");
    }

    template <typename Number>
    std::optional<Number> optionalNumber(std::string_view name) {
        const auto value = optionalText(name);
        const auto number = value ? numberIn<Number>(*value) : std::nullopt;
        isValid = isValid && (!value || number);
        return number;
    }

    template <typename Number>
    Number number(std::string_view name) {
        const auto value = optionalNumber<Number>(name);
        isValid = isValid && value;
        return value.value_or(0);
    }

    bool isValid = true;

  private:
    Fields _fields;
};

}  // namespace

std::string frameHeader(FrameKind kind, std::size_t size) {
    std::array<char, kFrameHeaderSize - 1> digits{};
    auto* const end = std::to_chars(digits.begin(), digits.end(), size, kHexadecimal).ptr;
    const auto count = static_cast<std::size_t>(end - digits.begin());
    return static_cast<char>(kind) + std::string(digits.size() - count, '0') +
           std::string(digits.data(), count);
}

std::string frame(FrameKind kind, std::string_view payload) {
    return frameHeader(kind, payload.size()).append(payload);
}

std::optional<std::pair<FrameKind, std::size_t>> frameIn(std::string_view header) {
    constexpr std::string_view kKinds = "CRHBEZ";
    if (header.size() != kFrameHeaderSize || kKinds.find(header.front()) == kKinds.npos) {
        return std::nullopt;
    }
    const auto size = numberIn<std::uint64_t>(header.substr(1), kHexadecimal);
    if (!size || *size > kLargestFrame) {
        return std::nullopt;
    }
    return std::pair(FrameKind{header.front()}, static_cast<std::size_t>(*size));
}

std::string encodedFields(const Fields& fields) {
    std::string payload;
    for (const auto& [name, value] : fields) {
        payload.append(name).append("=").append(value).append("\n");
    }
    return payload;
}

std::optional<Fields> decodedFields(std::string_view payload) {
    Fields fields;
    while (!payload.empty()) {
        const std::size_t end = payload.find('\n');
        const std::string_view line = payload.substr(0, end);
        const std::size_t mark = line.find('=');
        if (end == payload.npos || mark == line.npos) {
            return std::nullopt;
        }
        fields.emplace_back(line.substr(0, mark), line.substr(mark + 1));
        payload.remove_prefix(end + 1);
    }
    return fields;
}

std::string encodedRequest(const HttpRequest& request, const HttpOptions& options) {
    Fields fields = {{"url", request.url},
                     {"method", request.method == HttpMethod::Post ? "POST" : "GET"},
                     {"wanted", request.wanted == WantedBodies::All ? "all" : "contents"},
                     {"connect-timeout", std::to_string(options.connectTimeout.count())},
                     {"stall-timeout", std::to_string(options.stallTimeout.count())}};
    if (options.maximumBodySize) {
        fields.emplace_back("maximum-body-size", std::to_string(*options.maximumBodySize));
    }
    if (const std::uint64_t offset = offsetToResumeAt(request); offset > 0) {
        fields.emplace_back("offset", std::to_string(offset));
        fields.emplace_back("validator", request.resumption->validator);
    }
    for (const HttpHeader& header : request.headers) {
        fields.emplace_back("header", header.name + ":" + header.value);
    }
    return encodedFields(fields);
}

std::optional<std::pair<HttpRequest, HttpOptions>> decodedRequest(std::string_view payload) {
    FieldReader reader(payload);
    HttpRequest request{.url = reader.text("url")};
    request.method = reader.text("method") == "POST" ? HttpMethod::Post : HttpMethod::Get;
    request.wanted = reader.text("wanted") == "all" ? WantedBodies::All : WantedBodies::Contents;
    HttpOptions options;
    options.connectTimeout =
        std::chrono::milliseconds(reader.number<std::uint32_t>("connect-timeout"));
    options.stallTimeout = std::chrono::milliseconds(reader.number<std::uint32_t>("stall-timeout"));
    options.maximumBodySize = reader.optionalNumber<std::uint64_t>("maximum-body-size");
    if (const auto offset = reader.optionalNumber<std::uint64_t>("offset")) {
        request.resumption = HttpResumption{*offset, reader.text("validator")};
    }
    for (const auto& [name, value] : reader.fields()) {
        if (name == "header") {
            const std::size_t mark = std::min(value.find(':'), value.size());
            request.headers.push_back(
                {value.substr(0, mark), value.substr(std::min(mark + 1, value.size()))});
        }
    }
    return reader.isValid ? std::optional(std::pair(std::move(request), options)) : std::nullopt;
}

std::string encodedResponse(const HttpResponse& response) {
    Fields fields = {{"status", std::to_string(response.status)},
                     {"url", response.url},
                     {"proxy", escaped(response.proxy)},
                     {"body-offset", std::to_string(response.bodyOffset)}};
    addIfPresent(fields, "entity-tag", response.entityTag);
    addIfPresent(fields, "last-modified", response.lastModified);
    if (response.contentLength) {
        fields.emplace_back("content-length", std::to_string(*response.contentLength));
    }
    if (response.retryAfter) {
        fields.emplace_back("retry-after", std::to_string(response.retryAfter->count()));
    }
    return encodedFields(fields);
}

std::optional<HttpResponse> decodedResponse(std::string_view payload) {
    FieldReader reader(payload);
    HttpResponse response{.status = reader.number<std::uint16_t>("status"),
                          .url = reader.text("url"),
                          .proxy = escaped(reader.text("proxy")),
                          .entityTag = reader.optionalText("entity-tag"),
                          .lastModified = reader.optionalText("last-modified"),
                          .contentLength = reader.optionalNumber<std::uint64_t>("content-length"),
                          .bodyOffset = reader.number<std::uint64_t>("body-offset")};
    if (const auto seconds = reader.optionalNumber<std::uint32_t>("retry-after")) {
        response.retryAfter = std::chrono::seconds(*seconds);
    }
    return reader.isValid ? std::optional(std::move(response)) : std::nullopt;
}

std::string encodedError(const Error& error) {
    return encodedFields({{"domain", error.domain},
                          {"code", std::to_string(error.code)},
                          {"description", escaped(error.localizedDescription)}});
}

std::optional<Error> decodedError(std::string_view payload) {
    FieldReader reader(payload);
    Error error{.domain = escaped(reader.text("domain")),
                .code = reader.number<std::int64_t>("code"),
                .localizedDescription = escaped(reader.text("description"))};
    return reader.isValid ? std::optional(std::move(error)) : std::nullopt;
}

}  // namespace teravolant::platform
