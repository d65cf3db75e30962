#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Work that is done when somebody subscribes: on the subscriber's thread, and anew each time. It
/// ends with one value, which completes the signal, or with one error.
template <typename Value>
class RACSignal {
  public:
    using Work = std::function<Result<Value>()>;

    /// `name` is for people who debug.
    static RACSignal defer(std::string name, Work work) {
        return RACSignal(std::move(name), std::move(work));
    }

    Result<Value> subscribe() const { return _work(); }

    [[nodiscard]] const std::string& name() const { return _name; }

  private:
    RACSignal(std::string name, Work work) : _name(std::move(name)), _work(std::move(work)) {}

    std::string _name;
    Work _work;
};

}  // namespace teravolant::platform
