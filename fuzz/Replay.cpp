/*
 * Runs a target without a fuzzer, with any compiler: its regressions, then inputs made at random
 * from words and single bytes. Takes arguments as clang's fuzzer does: -runs=N -seed=N -dict=FILE,
 * and files, which are run instead.
 */

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/Target.h"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);
// The sanitizers' own name.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" __attribute__((weak)) void __sanitizer_set_death_callback(void (*callback)());

namespace {

constexpr size_t kMaxPieces = 60;

std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        fprintf(stderr, "%s cannot be read\n", path.c_str());
        exit(EXIT_FAILURE);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/** The words of a dictionary of clang's fuzzer: each between quotes, with \xNN for odd bytes. */
std::vector<std::string> readWords(const std::string& path) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool comment = false;
    const std::string text = readText(path);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n') {
            quoted = comment = false;
        } else if (!quoted && text[i] == '#') {
            comment = true;
        } else if (comment) {
            continue;
        } else if (text[i] == '"') {
            if (quoted) words.push_back(word);
            word.clear();
            quoted = !quoted;
        } else if (quoted && text[i] == '\\' && text[i + 1] == 'x') {
            word += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else if (quoted) {
            if (text[i] == '\\') ++i;
            word += text[i];
        }
    }
    return words;
}

/** Makes inputs that get further than mere noise does. */
class Generator {
  public:
    Generator(unsigned seed, std::vector<std::string> words)
        : random_(seed), words_(std::move(words)) {}

    std::string input() {
        std::string text;
        for (size_t pieces = upTo(kMaxPieces); pieces > 0; --pieces) text += piece();
        return text;
    }

  private:
    // The distributions of the standard library are not the same everywhere.
    size_t upTo(size_t limit) { return random_() % (limit + 1); }

    std::string piece() {
        switch (upTo(7)) {
            case 0:
                return std::string(1, static_cast<char>(upTo(255)));
            case 1:
                return std::string(1, static_cast<char>(upTo(31)));
            case 2:
                return std::string(1, static_cast<char>('0' + upTo(9)));
            case 3:
                return std::string(1, ",:"[upTo(1)]);
            default:
                return words_.empty() ? "" : words_[upTo(words_.size() - 1)];
        }
    }

    std::mt19937 random_;
    const std::vector<std::string> words_;
};

const std::string* g_input = nullptr;

/** Shows the input that ends the process, for a file or another known input. */
void showInput() {
    fprintf(stderr, "At the input \"");
    for (const char byte : *g_input) fprintf(stderr, "\\x%02x", static_cast<uint8_t>(byte));
    fprintf(stderr, "\"\n");
}

/** Has it shown whatever the end is: that of a sanitizer, or a signal. */
void showInputAtEnd() {
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(showInput);
    struct sigaction action {};
    action.sa_handler = [](int) { showInput(); };
    // The second time the signal does its work.
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGABRT, &action, nullptr);
    if (__sanitizer_set_death_callback == nullptr) sigaction(SIGSEGV, &action, nullptr);
}

void run(const std::string& input) {
    g_input = &input;
    // A copy of just the right size: a byte too far is noticed.
    const std::vector<uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

bool takeOption(const std::string& argument, const std::string& name, std::string& value) {
    if (argument.compare(0, name.size(), name) != 0) return false;
    value = argument.substr(name.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    std::string runs = "1000";
    std::string seed = "1";
    std::string dictionary;
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (!takeOption(argument, "-runs=", runs) && !takeOption(argument, "-seed=", seed) &&
            !takeOption(argument, "-dict=", dictionary)) {
            files.push_back(argument);
        }
    }
    std::vector<std::string> words;
    if (!dictionary.empty()) words = readWords(dictionary);
    std::vector<std::string> inputs = fuzz::kRegressions;
    if (!files.empty()) inputs.clear();
    for (const std::string& file : files) inputs.push_back(readText(file));

    showInputAtEnd();
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    for (const std::string& input : inputs) run(input);
    const unsigned long count = files.empty() ? std::stoul(runs) : 0;
    printf("%zu known inputs, %lu made with -seed=%s\n", inputs.size(), count, seed.c_str());
    fflush(stdout);
    Generator generator(static_cast<unsigned>(std::stoul(seed)), words);
    for (unsigned long i = 0; i < count; ++i) run(generator.input());
    return EXIT_SUCCESS;
}
