#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// Computes an MD5 digest (RFC 1321) incrementally. It detects changes but not forgeries.
///
/// Used by one thread at a time.
class Md5 {
  public:
    Md5();
    ~Md5();
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;

    void update(std::string_view bytes);

    /// Returns the 16 raw bytes of the digest, or nothing if the system's policy forbids the
    /// algorithm. Called once, at the end.
    [[nodiscard]] std::optional<std::string> finish();

  private:
    struct Context;
    std::unique_ptr<Context> _context;
};

}  // namespace teravolant::platform
