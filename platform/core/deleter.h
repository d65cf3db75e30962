#pragma once

namespace teravolant::platform {

/// Deletes a resource with a function of its library, for `std::unique_ptr`:
/// `std::unique_ptr<DIR, Deleter<closedir>>`.
template <auto function>
struct Deleter {
    template <typename Resource>
    void operator()(Resource* resource) const {
        function(resource);
    }
};

}  // namespace teravolant::platform
