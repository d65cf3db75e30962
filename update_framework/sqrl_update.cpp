#include "update_framework/sqrl_update.h"

#include <algorithm>
#include <cctype>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/system/bundle.h"

namespace teravolant::platform {
namespace {

Error memberError(MTLJSONAdapterErrorCode code, std::string_view member, std::string_view problem) {
    return Error{.domain = std::string(MTLJSONAdapterErrorDomain),
                 .code = code,
                 .localizedDescription = "The update's " + quoted(std::string(member)) + " " +
                                         std::string(problem) + "."};
}

bool isAnyText(std::string_view /*text*/) { return true; }

bool isSha256(std::string_view text) {
    constexpr std::size_t kDigits = 64;
    return text.size() == kDigits && std::all_of(text.begin(), text.end(), [](unsigned char digit) {
               return std::isxdigit(digit) != 0;
           });
}

bool isBase64(std::string_view text) {
    constexpr std::size_t kGroup = 4;
    if (text.empty() || text.size() % kGroup != 0) {
        return false;
    }
    for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) {
        text.remove_suffix(1);
    }
    return std::all_of(text.begin(), text.end(), [](unsigned char digit) {
        return std::isalnum(digit) != 0 || digit == '+' || digit == '/';
    });
}

/// Reads the members of one object and keeps the error of the first missing or invalid member.
class MemberReader {
  public:
    explicit MemberReader(const Value::Dictionary& dictionary) : _dictionary(dictionary) {}

    /// `problem` describes, in the error, a value that `isValid` refuses.
    std::optional<std::string> text(std::string_view member, bool (*isValid)(std::string_view),
                                    std::string_view problem) {
        const Value* const value = find(member);
        if (value == nullptr) {
            return std::nullopt;
        }
        const std::string* const content = value->text();
        if (content == nullptr || !isValid(*content)) {
            fail(memberError(MTLJSONAdapterErrorInvalidMember, member, problem));
            return std::nullopt;
        }
        return *content;
    }

    std::string requiredText(std::string_view member, bool (*isValid)(std::string_view),
                             std::string_view problem) {
        if (find(member) == nullptr) {
            fail(memberError(MTLJSONAdapterErrorMissingMember, member, "is missing"));
        }
        return text(member, isValid, problem).value_or("");
    }

    std::optional<std::uint64_t> positiveInteger(std::string_view member) {
        const Value* const value = find(member);
        if (value == nullptr) {
            return std::nullopt;
        }
        if (value->integer() == nullptr || *value->integer() <= 0) {
            fail(
                memberError(MTLJSONAdapterErrorInvalidMember, member, "is not a positive integer"));
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(*value->integer());
    }

    [[nodiscard]] const Status& error() const { return _error; }

  private:
    const Value* find(std::string_view member) const {
        const auto found = _dictionary.find(member);
        return found == _dictionary.end() ? nullptr : &found->second;
    }

    void fail(Error error) {
        if (!_error) {
            _error = std::move(error);
        }
    }

    const Value::Dictionary& _dictionary;
    Status _error;
};

}  // namespace

template <>
Result<SQRLUpdate> MTLJSONAdapter::modelOfClass<SQRLUpdate>(const Value::Dictionary& dictionary) {
    MemberReader reader(dictionary);
    SQRLUpdate update;
    update.version = reader.requiredText("version", isAnyText, "is not a string");
    // Read before the URL, which may be derived from the name.
    update.name = reader.text("name", isAnyText, "is not a string");
    update.updateURL = reader.requiredText("url", isSecureOrLoopbackURL,
                                           "is not an absolute https URL (or http on loopback)");
    update.size = reader.positiveInteger("size");
    update.sha256 = reader.text("sha256", isSha256, "is not 64 hexadecimal digits");
    update.signature = reader.text("signature", isBase64, "is not valid Base64");
    if (reader.error()) {
        return *reader.error();
    }
    return update;
}

std::vector<std::string> updatePublicKeys(const Bundle& bundle) {
    std::vector<std::string> keys;
    const Value* value = bundle.objectForInfoDictionaryKey("TVUpdatePublicKeys");
    if (value != nullptr && value->array() != nullptr) {
        for (const Value& key : *value->array()) {
            if (key.text() != nullptr) {
                keys.push_back(*key.text());
            }
        }
    }
    return keys;
}

}  // namespace teravolant::platform
