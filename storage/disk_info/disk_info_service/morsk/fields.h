// Field lists of the structured parcelables. Each class lists its fields in wire order as
// `kFields`; the writer, the reader and the command's output iterate over that list.
#pragma once

#if __cplusplus < 202002L
#error "disk_info takes C++20: -std=c++20"
#endif

#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

// Marks an unsigned counter, which the wire carries as a signed number with the same bits.
inline constexpr bool kUnsigned = true;

template <typename Parcelable, typename Value>
struct Field {
    using Member = Value Parcelable::*;

    const char* name;
    Member member;
    bool isUnsigned = false;
};
template <typename Parcelable, typename Value>
Field(const char*, Value Parcelable::*) -> Field<Parcelable, Value>;
template <typename Parcelable, typename Value>
Field(const char*, Value Parcelable::*, bool) -> Field<Parcelable, Value>;

// Calls visit(field) for each field in wire order.
template <typename Parcelable, typename Visit>
void forEachField(Visit&& visit) {
    std::apply([&](const auto&... field) { (visit(field), ...); }, Parcelable::kFields);
}

}  // namespace morsk::com::quendar::tavisk::disk_info
