// What the command makes of answers: words, the verdict, bars and metrics.
#include <cli/assessment.h>
#include <cli/explanation.h>
#include <cli/metrics.h>
#include <cli/plain_text.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace disk_info::client {
namespace {

TEST(CommandTextTest, FieldsReadInWords) {
    const struct {
        const char* fields;  // the first one is meant
        const char* want;
    } cases[] = {
        {R"({"deviceLifeTimeEstimationA": "0x00"})", "not reported"},
        {R"({"deviceLifeTimeEstimationA": "0x01"})", "0 % to 10 % used"},
        {R"({"deviceLifeTimeEstimationB": "0x0b"})", "beyond its expected life"},
        {R"({"preEndOfLifeInfo": "0x00"})", "not reported"},
        {R"({"preEndOfLifeInfo": "0x02"})", "warning, 80 % of the reserved blocks are used"},
        {R"({"criticalWarning": -1})", "not reported"},
        {R"({"criticalWarning": 72})", "the media is read-only; bit 6"},
        {R"({"availableSpare": 0, "availableSpareThreshold": 0, "criticalWarning": 2})",
         "not reported"},
        {R"({"availableSpare": 0, "availableSpareThreshold": 0, "criticalWarning": 1})", "0 %"},
        {R"({"percentageUsed": 101})", "101 %, beyond its expected life"},
        {R"({"dataUnitsWritten": 0})", "not reported"},
        {R"({"dataUnitsWritten": 1999})", "1.0 GB"},
        {R"({"dataUnitsWritten": 18446744073709551615})", "9444733.0 EB"},
        {R"({"size": 256060514304})", "256.1 GB (238.5 GiB)"},
        {R"({"specVersion": 545})", "2.2.1"},
        {R"({"versionMajor": 1, "versionMinor": 4, "versionTertiary": 2})", "1.4.2"},
        {R"({"versionMajor": 0, "versionMinor": 0, "versionTertiary": 0})", "not reported"},
        {R"({"ffuSupport": false, "type": "NVMe"})", "no"},
        {R"({"ffuSupport": false, "type": "UFS", "extendedFeatureSupport": ""})", "not reported"},
        {R"({"provisioningType": 3, "type": "UFS"})", "thin, discarded blocks read as zeros"},
        {R"({"writeBoosterEnabled": false, "writeBoosterSupport": 0})", "-"},
        {R"({"writeBoosterFraction": 0.125})", "12.5 % of the disk"},
        {R"({"discardReadValue": "1"})", "all bytes 0xFF"},
        {R"({"currentPowerState": -1})", "not reported"},
        {R"({"lastErrorCode": 4, "errorCount": 1})", "bad checksum"},
        {R"({"modelNumber": "QEMU   "})", "QEMU"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fields);
        const Json fields = Json::parse(c.fields);
        EXPECT_EQ(words(fields, fields.begin().key()), c.want);
    }
}

TEST(CommandTextTest, EachLimitTellsItsVerdict) {
    const struct {
        const char* health;
        Verdict verdict;
        const char* reason;  // part of the first one
    } cases[] = {
        {R"({"error": {"kind": "service", "code": -1}})", Verdict::kUnknown, "could not be read"},
        {R"({"ufs": {"preEndOfLifeInfo": "0x00", "deviceLifeTimeEstimationA": ""}})",
         Verdict::kUnknown, "nothing to judge"},
        {R"({"ufs": {"preEndOfLifeInfo": "0x02"}})", Verdict::kWatch, "Reserved blocks: warning"},
        {R"({"ufs": {"preEndOfLifeInfo": "0x03"}})", Verdict::kFailing, "Reserved blocks: urgent"},
        {R"({"ufs": {"deviceLifeTimeEstimationA": "0x09"}})", Verdict::kOk, "nothing"},
        {R"({"ufs": {"deviceLifeTimeEstimationA": "0x0A"}})", Verdict::kWatch, "90 % to 100 %"},
        {R"({"ufs": {"deviceLifeTimeEstimationB": "0x09"}})", Verdict::kOk, "nothing"},
        {R"({"ufs": {"deviceLifeTimeEstimationB": "0x0B"}})", Verdict::kWatch, "estimation B: bey"},
        {R"({"nvme": {"percentageUsed": 89}})", Verdict::kOk, "nothing"},
        {R"({"nvme": {"percentageUsed": 90}})", Verdict::kWatch, "Expected life used: 90 %"},
        {R"({"nvme": {"percentageUsed": 255}})", Verdict::kWatch, "255 %, beyond"},
        {R"({"nvme": {"numberOfMediaErrors": 1}})", Verdict::kWatch, "Media errors: 1"},
        {R"({"nvme": {"availableSpare": 11, "availableSpareThreshold": 10}})", Verdict::kOk, ""},
        {R"({"nvme": {"availableSpare": 10, "availableSpareThreshold": 10}})", Verdict::kWatch,
         "Available spare: 10 %, down to its threshold of 10 %"},
        {R"({"nvme": {"availableSpare": 9, "availableSpareThreshold": 10}})", Verdict::kFailing,
         "Available spare: 9 %, below its threshold of 10 %"},
        {R"({"nvme": {"availableSpare": 0, "availableSpareThreshold": 0, "criticalWarning": 0}})",
         Verdict::kOk, "nothing"},
        {R"({"nvme": {"criticalWarning": 1}})", Verdict::kFailing, "spare is below"},
        {R"({"nvme": {"criticalWarning": 2}})", Verdict::kWatch, "temperature"},
        {R"({"nvme": {"criticalWarning": 4}})", Verdict::kFailing, "reliability"},
        {R"({"nvme": {"criticalWarning": 8}})", Verdict::kFailing, "media is read-only"},
        {R"({"nvme": {"criticalWarning": 16}})", Verdict::kFailing, "volatile memory"},
        {R"({"nvme": {"criticalWarning": 32}})", Verdict::kWatch, "memory region"},
        {R"({"nvme": {"criticalWarning": 64}})", Verdict::kWatch, "bit 6"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.health);
        const Assessment got = assess(Json::parse(c.health));
        EXPECT_EQ(got.verdict, c.verdict);
        EXPECT_NE(got.reasons.at(0).find(c.reason), std::string::npos) << got.reasons.at(0);
    }
}

TEST(CommandTextTest, BarsAreFilledAndColouredByTheirOwnFindings) {
    const Json document = Json::parse(R"({"health": {"nvme": {"availableSpare": 5,
        "availableSpareThreshold": 10, "percentageUsed": 130, "criticalWarning": 0}}})");
    EXPECT_EQ(plainText(document, true),
              "Available spare:           [\x1b[31m#\x1b[0m...................] 5 %\n"
              "Available spare threshold: 10 %\n"
              "Expected life used:        [\x1b[33m####################\x1b[0m] 130 %, beyond its "
              "expected life\n"
              "Critical warning:          none\n"
              "Verdict:                   \x1b[31mfailing\x1b[0m: Available spare: 5 %, below its "
              "threshold of 10 %; Expected life used: 130 %, beyond its expected life\n");
    EXPECT_EQ(plainText(Json::parse(R"({"power": null})"), true), "Result: none\n");
}

// The samples alone, of fields of all kinds; the lines about the families are a parser's to judge.
TEST(CommandTextTest, MetricsSayWhatIsReportedInBaseUnits) {
    const Json document = Json::parse(R"({
        "info": {"nvme": {"type": "NVMe", "vendor": "a\"b\\c\nd", "modelNumber": "",
                          "serialNumber": "s", "firmwareRevision": "f", "versionMajor": 1,
                          "versionMinor": 4, "versionTertiary": 2, "size": 5}},
        "health": {"nvme": {"availableSpare": 5, "availableSpareThreshold": 10,
                            "percentageUsed": 130, "criticalWarning": 42, "dataUnitsWritten": 2,
                            "numberOfMediaErrors": 7, "numberOfErrorLogEntries": 8,
                            "preEndOfLifeInfo": "0x02", "deviceLifeTimeEstimationA": "0x04",
                            "deviceLifeTimeEstimationB": "0x00",
                            "totalNumberOfErrors": 18446744073709551615}},
        "power": {"nvme": {"currentPowerState": 3, "isOperational": true}},
        "filesystems": {"userdata": null, "metadata": {"errorCount": 4}}})");
    std::istringstream lines(metricsText(document));
    std::string samples;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with('#')) samples += line.substr(sizeof "disk_info_" - 1) + '\n';
    }
    EXPECT_EQ(samples, R"(up{call="info"} 1
up{call="health"} 1
up{call="power"} 1
up{call="fs_userdata"} 0
up{call="fs_metadata"} 1
identity_info{type="NVMe",vendor="a\\\"b\\\\c\\nd",serial="s",firmware="f",version="1.4.2"} 1
size_bytes 5
verdict{verdict="unknown"} 0
verdict{verdict="ok"} 0
verdict{verdict="watch"} 0
verdict{verdict="failing"} 1
life_used_ratio 1.3
life_used_ratio{estimation="a"} 0.3
spare_ratio 0.05
spare_threshold_ratio 0.1
critical_warning{warning="spare"} 0
critical_warning{warning="temperature"} 1
critical_warning{warning="reliability"} 0
critical_warning{warning="read_only"} 1
critical_warning{warning="memory_backup"} 0
critical_warning{warning="persistent_memory"} 1
pre_end_of_life 2
written_bytes_total 1024000
media_errors_total 7
error_log_entries_total 8
io_errors_total 18446744073709551616
power_state 3
active 1
filesystem_errors_total{partition="metadata"} 4
)");
}

}  // namespace
}  // namespace disk_info::client
