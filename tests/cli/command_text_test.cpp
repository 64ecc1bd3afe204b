// Documents as text: words, verdict, plain text and metrics.
#include <cli/fields.h>
#include <cli/metrics.h>
#include <cli/plain_text.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace disk_info::cli {
namespace {

// `answers`: fields by call, "fs" and the partition for a filesystem. A number is the code of a
// service error; a call without an entry returned no result.
Document DocumentOf(Command command, const char* answers) {
    const Json json = Json::parse(answers);
    return MakeDocument({command, ""}, [&](Call call, const std::string& partition) {
        Answer answer;
        answer.fields = json.value(NameOf(call) + partition, Json());
        if (answer.fields.is_number()) answer.error = {ErrorKind::kService, answer.fields};
        return answer;
    });
}

using enum Verdict;
const struct {
    const char* fields;  // the words of the first one are compared
    const char* words;
    Verdict verdict = kUnknown;
} kFieldCases[] = {
    {R"({"size": 0})", "not reported"},
    {R"({"size": 1000})", "1.0 kB (1000.0 B)"},
    {R"({"size": 1099511627776})", "1.1 TB (1.0 TiB)"},
    {R"({"specVersion": 4641})", "12.2.1"},
    {R"({"versionMajor": 0, "versionMinor": 0, "versionTertiary": 0})", "not reported"},
    {R"({"ffuSupport": false, "type": "NVMe"})", "no"},
    {R"({"ffuSupport": false, "type": "UFS", "extendedFeatureSupport": ""})", "not reported"},
    {R"({"provisioningType": 3, "type": "UFS"})", "thin, discarded blocks read as zeros"},
    {R"({"provisioningType": 3, "type": ""})", "not reported"},
    {R"({"writeBoosterEnabled": false, "writeBoosterSupport": 0})", "-"},
    {R"({"writeBoosterEnabled": false, "writeBoosterSupport": 1})", "no"},
    {R"({"writeBoosterFraction": 0.125})", "12.5 % of the disk"},
    {R"({"modelNumber": "QEMU   "})", "QEMU"},
    {R"({"dataUnitsWritten": 0})", "not reported"},
    {R"({"dataUnitsWritten": 18446744073709551615})", "9444733.0 EB"},
    {R"({"discardReadValue": "undefined"})", "not reported"},
    {R"({"currentPowerState": -1})", "not reported"},
    {R"({"isActive": false, "linkState": ""})", "not reported"},
    {R"({"lastErrorCode": 4, "errorCount": 1})", "bad checksum"},
    {R"({"lastErrorCode": 4, "errorCount": 0})", "-"},
    {R"({"preEndOfLifeInfo": "0x00"})", "not reported"},
    {R"({"preEndOfLifeInfo": "0x02"})", "warning, 80 % of the reserved blocks are used", kWatch},
    {R"({"preEndOfLifeInfo": "0x03"})", "urgent", kFailing},
    {R"({"preEndOfLifeInfo": "0x04"})", "not reported"},
    {R"({"deviceLifeTimeEstimationA": "0x09"})", "80 % to 90 % used", kOk},
    {R"({"deviceLifeTimeEstimationA": "0x0A"})", "90 % to 100 % used", kWatch},
    {R"({"deviceLifeTimeEstimationA": "0x0c"})", "not reported"},
    {R"({"deviceLifeTimeEstimationB": "9"})", "80 % to 90 % used", kOk},
    {R"({"deviceLifeTimeEstimationB": "10"})", "90 % to 100 % used", kWatch},
    {R"({"percentageUsed": 89})", "89 %", kOk},
    {R"({"percentageUsed": 90})", "90 %", kWatch},
    {R"({"percentageUsed": 100})", "100 %", kWatch},
    {R"({"percentageUsed": 101})", "101 %, beyond the expected life", kWatch},
    {R"({"numberOfMediaErrors": 0})", "0", kOk},
    {R"({"numberOfMediaErrors": 1})", "1", kWatch},
    {R"({"availableSpare": 100, "availableSpareThreshold": 100})", "100 %", kOk},
    {R"({"availableSpare": 10, "availableSpareThreshold": 10})", "10 %", kWatch},
    {R"({"availableSpare": 0, "availableSpareThreshold": 1})", "0 %", kFailing},
    {R"({"availableSpare": 0, "criticalWarning": 2})", "not reported", kWatch},
    {R"({"availableSpare": 0, "criticalWarning": 1})", "0 %", kFailing},
    {R"({"criticalWarning": 1})", "the available spare is below its threshold", kFailing},
    {R"({"criticalWarning": 2})", "the temperature is beyond a threshold", kWatch},
    {R"({"criticalWarning": 4})", kCriticalWarnings[2].words, kFailing},
    {R"({"criticalWarning": 8})", "the media is read-only", kFailing},
    {R"({"criticalWarning": 16})", "the backup of the volatile memory failed", kFailing},
    {R"({"criticalWarning": 32})", kCriticalWarnings[5].words, kWatch},
    {R"({"criticalWarning": 128})", "bit 7", kWatch},
    {R"({"criticalWarning": 256})", "not reported"},
    {R"({"criticalWarning": -1})", "not reported"},
};

TEST(CommandTextTest, FieldsHaveWordsAndAVerdict) {
    for (const auto& c : kFieldCases) {
        SCOPED_TRACE(c.fields);
        const Json fields = Json::parse(c.fields);
        EXPECT_EQ(Words(fields, fields.begin().key()), c.words);
        EXPECT_EQ(NameOf(Assess(&fields).verdict), NameOf(c.verdict));
    }
}

TEST(CommandTextTest, PlainTextHasSectionsBarsAndReasons) {
    const Document document = DocumentOf(Command::kStatus, R"({
        "health": {"availableSpare": 5, "availableSpareThreshold": 5, "percentageUsed": 0,
                   "deviceLifeTimeEstimationA": "0x05", "deviceLifeTimeEstimationB": "0x0b",
                   "criticalWarning": 72},
        "power": -1, "fsmetadata": {"sysfsPath": "/\u001b"}})");
    EXPECT_EQ(
        PlainText(document, true),
        "Info\n  Result:                    none\n\nHealth\n"
        "  Available spare:           [\x1b[33m#\x1b[0m...................] 5 %\n"
        "  Available spare threshold: 5 %\n"
        "  Expected life used:        [....................] 0 %\n"
        "  Life time estimation A:    [\x1b[32m##########\x1b[0m..........] 40 % to 50 % used\n"
        "  Life time estimation B:    [\x1b[33m####################\x1b[0m] "
        "beyond the expected life\n"
        "  Critical warning:          the media is read-only; bit 6\n"
        "  Verdict:                   \x1b[31mfailing\x1b[0m: Critical warning: "
        "the media is read-only; Critical warning: the media is read-only; bit 6; "
        "Available spare: 5 %, at its threshold of 5 %; "
        "Life time estimation B: beyond the expected life\n\n"
        "Power\n  Not available:             service error -1\n\n"
        "Filesystem userdata\n  Result:                    none\n\n"
        "Filesystem metadata\n  Sysfs path:                /\\u001b\n");
    const Document health = DocumentOf(
        Command::kHealth, R"({"health": {"availableSpare": 1, "availableSpareThreshold": 2}})");
    EXPECT_EQ(
        PlainText(health, false),
        "Available spare:           1 %\nAvailable spare threshold: 2 %\n"
        "Verdict:                   failing: Available spare: 1 %, below its threshold of 2 %\n");
    EXPECT_EQ(PlainText(DocumentOf(Command::kHealth, "{}"), true),
              "Result:  none\nVerdict: unknown: the health data could not be read\n");
}

TEST(CommandTextTest, MetricsHaveReportedValuesInBaseUnits) {
    const Document document = DocumentOf(Command::kMetrics, R"({
        "info": {"type": "NVMe", "vendor": "a\"b\\c\nd", "modelNumber": "", "serialNumber": "s",
                 "firmwareRevision": "f", "versionMajor": 1, "versionMinor": 4,
                 "versionTertiary": 2, "size": 5},
        "health": {"availableSpare": 5, "availableSpareThreshold": 10, "percentageUsed": 130,
                   "criticalWarning": 170, "dataUnitsWritten": 2, "numberOfMediaErrors": 7,
                   "numberOfErrorLogEntries": 8, "preEndOfLifeInfo": "0x02",
                   "deviceLifeTimeEstimationA": "0x04", "deviceLifeTimeEstimationB": "0x01",
                   "totalNumberOfErrors": 18446744073709551615},
        "power": {"currentPowerState": 3, "isOperational": true},
        "fsmetadata": {"errorCount": 4}})");
    std::ostringstream expected;
    expected << std::ifstream(std::filesystem::path(OUTPUT_CHECKER).replace_filename("metrics.txt"))
                    .rdbuf();
    // The file has no help texts.
    const std::regex help("(# HELP \\w+) .+\n");
    EXPECT_EQ(std::regex_replace(MetricsText(document), help, "$1\n"), expected.str());
    const std::string open = MetricsText(document, MetricsFormat::kOpenMetrics);
    EXPECT_NE(open.find("_bytes counter\n# UNIT disk_info_written_bytes bytes\n# HELP disk_info_w"),
              std::string::npos);
    EXPECT_TRUE(open.ends_with("\n# EOF\n"));
    const std::regex comment("# .+\n");
    EXPECT_EQ(std::regex_replace(open, comment, ""),
              std::regex_replace(expected.str(), comment, ""));
}

}  // namespace
}  // namespace disk_info::cli
