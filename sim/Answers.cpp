#include "sim/Answers.h"

#include <cstdint>
#include <cstring>

namespace sim {

namespace {

/** What a message ends with: one without answers, too, has to get through. */
constexpr char kEnd = '.';

/** What precedes the text of each answer in a message. */
struct Head {
    char operation;
    int32_t error;
    uint32_t length;
};

}  // namespace

std::string Answers::encode(const std::vector<Answer>& answers) {
    std::string message;
    for (const Answer& answer : answers) {
        Head head;
        memset(&head, 0, sizeof(head));
        head.operation = static_cast<char>(answer.operation);
        head.error = answer.error;
        head.length = static_cast<uint32_t>(answer.text.size());
        message.append(reinterpret_cast<const char*>(&head), sizeof(head)) += answer.text;
    }
    return message += kEnd;
}

bool Answers::take(std::string_view message) {
    rows_.clear();
    while (message.size() > 1) {
        Head head;
        if (message.size() < sizeof(head)) return false;
        memcpy(&head, message.data(), sizeof(head));
        message.remove_prefix(sizeof(head));
        if (message.size() < head.length) return false;
        const auto operation = static_cast<Answer::Operation>(head.operation);
        rows_[operation].push_back(
                {operation, head.error, std::string(message.substr(0, head.length))});
        message.remove_prefix(head.length);
    }
    return !message.empty() && message.front() == kEnd;
}

int Answers::read(std::string& text) {
    Answer answer = next(Answer::Operation::kRead);
    text = std::move(answer.text);
    return -answer.error;
}

ssize_t Answers::readBytes(char* bytes, size_t count) {
    std::string text;
    if (const int result = read(text); result < 0) return result;
    return static_cast<ssize_t>(text.copy(bytes, count));
}

ssize_t Answers::storeBytes(std::string_view bytes) {
    const int result = store();
    return result < 0 ? result : static_cast<ssize_t>(bytes.size());
}

Answer Answers::next(Answer::Operation operation) {
    std::deque<Answer>& row = rows_[operation];
    if (row.empty()) return Answer::success(operation);
    Answer answer = std::move(row.front());
    row.pop_front();
    return answer;
}

}  // namespace sim
