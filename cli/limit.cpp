#include "limit.h"

#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace disk_info::client {

namespace {

struct Answer {
    Json document;
    std::vector<std::string> warnings;
};

std::future<Answer> startAsking(const Question& question) {
    std::packaged_task<Answer()> task([question] {
        Answer answer;
        answer.document = ask(question, &answer.warnings);
        return answer;
    });
    std::future<Answer> answer = task.get_future();
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error& error) {
        throw NoService(std::string("cannot start a thread: ") + error.what());
    }
    return answer;
}

}  // namespace

Json askWithin(std::chrono::seconds limit, const Question& question,
               std::vector<std::string>* warnings) {
    static std::future<Answer> late;
    const auto end = std::chrono::steady_clock::now() + limit;
    const auto is_in_time = [end](const std::future<Answer>& asking) {
        return asking.wait_until(end) == std::future_status::ready;
    };
    if (!late.valid() || is_in_time(late)) {
        std::future<Answer> asking = startAsking(question);
        if (is_in_time(asking)) {
            late = {};
            Answer answer = asking.get();
            warnings->insert(warnings->end(), answer.warnings.begin(), answer.warnings.end());
            return answer.document;
        }
        late = std::move(asking);
    }
    throw NoService("the service did not answer within " + std::to_string(limit.count()) +
                    " s; systemctl status disk-info.service and journalctl -u disk-info.service "
                    "may show why, --timeout sets another limit");
}

}  // namespace disk_info::client
