// Writing and reading one answer in this process, against copying as many bytes. The parcelable
// is one of a real UFS disk's size.
#include <benchmark/benchmark.h>
#include <binder/interface_utils.h>
#include <binder/parcel.h>
#include <morsk/DiskParcelables.h>

#include <cstring>
#include <vector>

namespace {

using namespace morsk::com::quendar::tavisk::disk_info;

DiskInfoParcel Answer() {
    UfsInfoParcel info;
    info.type = "UFS";
    info.vendor = "VENDOR";
    info.modelNumber = "MODEL-NUMBER-256";
    info.firmwareRevision = "0401";
    info.specVersion = 0x0310;
    info.ufsFeatures = "0xff";
    info.extendedFeatureSupport = "0x000001ff";
    info.gear = "HS_GEAR4";
    info.rate = "HS_RATE_B";
    info.dataLanes = "2";
    info.size = 256'000'000'000;
    return info;
}

void Write(benchmark::State& state) {
    const DiskInfoParcel answer = Answer();
    const binder::ScopedParcel parcel(AParcel_create());
    for (auto _ : state) {
        (void)AParcel_setDataPosition(parcel.get(), 0);
        if (answer.writeToParcel(parcel.get()) != STATUS_OK) state.SkipWithError("write");
        benchmark::ClobberMemory();
    }
}

void Read(benchmark::State& state) {
    const binder::ScopedParcel parcel(AParcel_create());
    (void)Answer().writeToParcel(parcel.get());
    DiskInfoParcel answer;
    for (auto _ : state) {
        (void)AParcel_setDataPosition(parcel.get(), 0);
        if (answer.readFromParcel(parcel.get()) != STATUS_OK) state.SkipWithError("read");
        benchmark::DoNotOptimize(answer);
    }
}

void Copy(benchmark::State& state) {
    const binder::ScopedParcel parcel(AParcel_create());
    (void)Answer().writeToParcel(parcel.get());
    const size_t size = size_t(AParcel_getDataSize(parcel.get()));
    std::vector<char> from(size, 'x'), to(size);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), size);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}

BENCHMARK(Write);
BENCHMARK(Read);
BENCHMARK(Copy);

}  // namespace
