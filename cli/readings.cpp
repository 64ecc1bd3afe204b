#include "readings.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "fields.h"

namespace disk_info::cli {

namespace {

Json OrNull(const std::optional<double>& value) {
    return value ? Json(*value) : Json();
}

// The field's number or truth as it is.
Json ValueAt(const Json& fields, const char* name) {
    const Json* const value = Reported(fields, name);
    return value != nullptr ? *value : Json();
}

// (reading - zero) / full
std::optional<double> RatioAt(const Json& fields, const char* name, double zero, double full) {
    const std::optional<double> reading = Reading(fields, name);
    if (!reading) return std::nullopt;
    return (*reading - zero) / full;
}

// UFS has two estimations; the higher one counts. A level is the start of its range.
Json LifeUsed(const Json& fields) {
    // An empty optional is less than any value.
    return OrNull(std::max({RatioAt(fields, "percentageUsed", 0, 100),
                            RatioAt(fields, "deviceLifeTimeEstimationA", 1, 10),
                            RatioAt(fields, "deviceLifeTimeEstimationB", 1, 10)}));
}

Json CriticalWarnings(const Json& fields) {
    const std::optional<double> reading = Reading(fields, "criticalWarning");
    if (!reading) return nullptr;
    Json raised = Json::array();
    auto bits = static_cast<unsigned>(*reading);
    for (const CriticalWarning& warning : kCriticalWarnings) {
        if ((bits & 1) != 0) raised.push_back(warning.key);
        bits >>= 1;
    }
    return raised;
}

Json ReservedBlocks(const Json& fields) {
    static constexpr const char* kNames[]{"", "normal", "warning", "urgent"};
    const std::optional<double> level = Reading(fields, "preEndOfLifeInfo");
    return level ? Json(kNames[static_cast<size_t>(*level)]) : Json();
}

// Null also for an amount above 64 bits.
Json WrittenBytes(const Json& fields) {
    constexpr uint64_t kUnit = 512'000;
    const Json units = ValueAt(fields, "dataUnitsWritten");
    if (units.is_null() || units > std::numeric_limits<uint64_t>::max() / kUnit) return nullptr;
    return units.get<uint64_t>() * kUnit;
}

void AddInfo(const Json& fields, Json::object_t* readings) {
    const std::string model = ModelWords(fields);
    (*readings)["model"] = model.empty() ? Json() : Json(model);
    (*readings)["sizeBytes"] = ValueAt(fields, "size");
}

void AddHealth(const Json& fields, Json::object_t* readings) {
    (*readings)["lifeUsedRatio"] = LifeUsed(fields);
    (*readings)["spareRatio"] = OrNull(RatioAt(fields, "availableSpare", 0, 100));
    (*readings)["spareThresholdRatio"] = OrNull(RatioAt(fields, "availableSpareThreshold", 0, 100));
    (*readings)["criticalWarnings"] = CriticalWarnings(fields);
    (*readings)["reservedBlocks"] = ReservedBlocks(fields);
    (*readings)["writtenBytes"] = WrittenBytes(fields);
    (*readings)["mediaErrors"] = ValueAt(fields, "numberOfMediaErrors");
    (*readings)["errorLogEntries"] = ValueAt(fields, "numberOfErrorLogEntries");
    (*readings)["ioErrors"] = ValueAt(fields, "totalNumberOfErrors");
}

void AddPower(const Json& fields, Json::object_t* readings) {
    (*readings)["powerState"] = ValueAt(fields, "currentPowerState");
    const bool is_nvme = fields.contains("isOperational");
    (*readings)["isActive"] = ValueAt(fields, is_nvme ? "isOperational" : "isActive");
}

}  // namespace

Json Readings(const Document& document) {
    const Json none = Json::object();
    Json::object_t readings;
    readings.reserve(16);  // Growing would copy the keys.
    for (const Result& result : document.results) {
        const Json* const answered = result.answer.Fields();
        const Json& fields = answered != nullptr ? *answered : none;
        switch (result.call) {
            case Call::kInfo:
                AddInfo(fields, &readings);
                break;
            case Call::kHealth:
                AddHealth(fields, &readings);
                break;
            case Call::kPower:
                AddPower(fields, &readings);
                break;
            case Call::kFilesystem:
                readings["filesystemErrors"][result.partition] = ValueAt(fields, "errorCount");
        }
    }
    return readings;
}

}  // namespace disk_info::cli
