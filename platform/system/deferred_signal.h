#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Work that each subscription runs again, on the subscriber's thread. It ends with one value,
/// which completes the signal, or with one error.
template <typename Value>
class RACSignal {
  public:
    using Work = std::function<Result<Value>()>;

    /// `name` identifies the signal in a debugger.
    static RACSignal defer(std::string name, Work work) {
        return RACSignal(std::move(name), std::move(work));
    }

    /// Runs the work and returns its result.
    Result<Value> subscribe() const { return _work(); }

    [[nodiscard]] const std::string& name() const { return _name; }

  private:
    RACSignal(std::string name, Work work) : _name(std::move(name)), _work(std::move(work)) {}

    std::string _name;
    Work _work;
};

}  // namespace teravolant::platform
