#pragma once

#include <cassert>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

// The results of operations that can fail. This header does not need the definition of `Error`;
// a file that creates an error or reads its fields includes error.h as well.
namespace teravolant::platform {

struct Error;

/// Returns domain, code and description, then those of the underlying error if there is one.
[[nodiscard]] std::string printedForm(const Error& error);

/// An error or nothing: the result of an operation that returns no value.
///
/// Tests true if it holds an error: `if (auto error = removeItem(path)) { return error; }`.
class [[nodiscard]] Status {
  public:
    Status() = default;
    Status(std::nullopt_t /*success*/) {}
    Status(const Error& error);
    Status(Error&& error);
    Status(const Status& other);
    Status(Status&& other) noexcept = default;
    Status& operator=(const Status& other);
    Status& operator=(Status&& other) noexcept = default;
    ~Status() = default;

    explicit operator bool() const { return _error != nullptr; }

    /// The error. The status must hold one.
    [[nodiscard]] const Error& operator*() const { return *_error; }
    [[nodiscard]] const Error* operator->() const { return _error.get(); }

  private:
    struct Delete {
        void operator()(const Error* error) const;
    };

    std::unique_ptr<const Error, Delete> _error;
};

/// The value of an operation or the error that it failed with; the interface of `std::expected`.
template <typename Value>
class [[nodiscard]] Result {
  public:
    Result(Value value) : _content(std::in_place_index<0>, std::move(value)) {}
    Result(const Error& error) : _content(std::in_place_index<1>, error) {}
    Result(Error&& error) : _content(std::in_place_index<1>, std::move(error)) {}
    /// `error` must hold an error.
    Result(Status error) : _content(std::in_place_index<1>, std::move(error)) {
        assert(*std::get_if<1>(&_content));
    }

    explicit operator bool() const { return _content.index() == 0; }

    /// The value. The result must hold one.
    [[nodiscard]] const Value& operator*() const& { return *std::get_if<0>(&_content); }
    [[nodiscard]] Value& operator*() & { return *std::get_if<0>(&_content); }
    [[nodiscard]] Value&& operator*() && { return std::move(*std::get_if<0>(&_content)); }
    [[nodiscard]] const Value* operator->() const { return std::get_if<0>(&_content); }
    [[nodiscard]] Value* operator->() { return std::get_if<0>(&_content); }

    /// The error. The result must hold one.
    [[nodiscard]] const Error& error() const { return **std::get_if<1>(&_content); }

  private:
    std::variant<Value, Status> _content;
};

}  // namespace teravolant::platform
