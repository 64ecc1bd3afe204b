// The fields of a structured parcelable, written once: each class lists them as `kFields`, in wire
// order, and whoever handles fields one by one (the writer, the reader, a printer) walks that list.
#pragma once

#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

// A counter whose bits are unsigned although the wire type is signed.
inline constexpr bool kUnsigned = true;

template <typename Parcelable, typename Value>
struct Field {
    const char* name;
    Value Parcelable::*member;
    bool is_unsigned = false;
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
