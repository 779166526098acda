#include "bench/floor.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define FBO_NODE(name) "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc/ufsfbo/" name

enum {
    kTextLength = 4096,
    kMaxRanges = 127,
    kPolls = 200,
    kPollSeconds = 6,
    kReportLength = 29,
    kLevelIndex = 10,
};

/** An operation of the device, and what its state node tells while it lasts and at its end. */
struct operation {
    const char* control;
    const char* command;
    const char* state;
    int ongoing;
    int done;
};

static const struct operation kAnalyse40 = {FBO_NODE("fbo_operation_control"), "1\n",
                                            FBO_NODE("fbo_prog_state"), 1, 2};
static const struct operation kOptimise40 = {FBO_NODE("fbo_operation_control"), "2\n",
                                             FBO_NODE("fbo_prog_state"), 1, 3};
static const struct operation kAnalyse31 = {FBO_NODE("fbs_flc_enable"), "1\n",
                                            FBO_NODE("fbs_flc_ops"), 2, 3};
static const struct operation kOptimise31 = {FBO_NODE("fbs_defrag_enable"), "1\n",
                                             FBO_NODE("fbs_defrag_ops"), 2, 0};

static int open_input(const char* node) {
    return open(node, O_RDONLY | O_CLOEXEC);
}

static int open_output(const char* node) {
    return open(node, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

static bool store(int fd, const char* text) {
    const size_t length = strlen(text);
    return write(fd, text, length) == (ssize_t)length;
}

static bool store_in(const char* node, const char* text) {
    const int fd = open_output(node);
    const bool stored = store(fd, text);
    close(fd);
    return stored;
}

/** Asks for the number that a node holds; -1 if it holds none. */
static int read_number(int fd) {
    char text[kTextLength];
    const ssize_t size = pread(fd, text, sizeof(text) - 1, 0);
    if (size <= 0) return -1;
    text[size] = '\0';
    return atoi(text);
}

static int read_number_in(const char* node) {
    const int fd = open_input(node);
    if (fd < 0) return -1;
    const int number = read_number(fd);
    close(fd);
    return number;
}

bool floor_query(void) {
    char support = '0';
    const int fd = open(FBO_NODE("fbo_support"), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const bool answered = read(fd, &support, 1) == 1;
    close(fd);
    return answered && support == '1';
}

/** Brings an operation back to idle. */
static bool clear(const struct operation* operation) {
    const int control = open_output(operation->control);
    const int state = open_input(operation->state);
    bool idle = read_number(state) == 0;
    if (!idle) idle = store(control, "0\n") && read_number(state) == 0;
    close(state);
    close(control);
    return idle;
}

/** Starts an operation and waits for its end. */
static bool run(const struct operation* operation) {
    const int state = open_input(operation->state);
    // UFS 3.1 tells that it has accepted the list.
    bool done = operation != &kAnalyse31 || read_number(state) == 1;
    const int control = open_output(operation->control);
    done = done && store(control, operation->command);
    int now = read_number(state);
    for (int polls = 0; now == operation->ongoing && polls < kPolls; ++polls) {
        sleep(kPollSeconds);
        now = read_number(state);
    }
    close(control);
    close(state);
    return done && now == operation->done;
}

/** Reads the report, whose length is not known before, to its end, and adds its level. */
static bool add_level(long* sum) {
    char report[kTextLength];
    size_t length = 0;
    ssize_t size;
    const int fd = open_input(FBO_NODE("fbo_get_lr_frag_level"));
    while ((size = pread(fd, report + length, sizeof(report) - length, (off_t)length)) > 0) {
        length += size;
    }
    close(fd);
    if (length < kReportLength) return false;
    *sum += report[kLevelIndex] == 'a' ? 10 : report[kLevelIndex] - '0';
    return true;
}

/** Has the device analyse the list, a line, and adds the level that it finds. */
static bool analyse(bool is_31, const char* list, long* sum) {
    // UFS 4.0 has one state for all operations.
    return clear(is_31 ? &kAnalyse31 : &kAnalyse40) && (!is_31 || clear(&kOptimise31)) &&
           store_in(FBO_NODE("fbo_send_lr_list"), list) && run(is_31 ? &kAnalyse31 : &kAnalyse40) &&
           add_level(sum);
}

static bool run_zone(const char* list, long* before, long* after) {
    const bool is_31 = read_number_in(FBO_NODE("is_ufs31")) == 1;
    return analyse(is_31, list, before) && run(is_31 ? &kOptimise31 : &kOptimise40) &&
           analyse(is_31, list, after);
}

/** Cuts the next zone out of `request` into `list`, a line. Returns where the rest begins. */
static const char* next_zone(const char* request, const char* end, int ranges, char* list) {
    const char* rest = request;
    for (int numbers = 0; numbers < 2 * ranges && rest < end; ++numbers) {
        const char* comma = memchr(rest, ',', end - rest);
        if (comma == NULL) return NULL;
        rest = comma + 1;
    }
    const size_t length = rest - request;
    if (length >= kTextLength) return NULL;
    memcpy(list, request, length);
    // In place of the last comma.
    list[length - 1] = '\n';
    list[length] = '\0';
    return rest;
}

bool floor_request(const char* request, size_t length, long* before, long* after) {
    char list[kTextLength];
    const char* const end = request + length;
    int ranges = read_number_in(FBO_NODE("fbo_max_lrc"));
    if (ranges <= 0) return false;
    if (ranges > kMaxRanges) ranges = kMaxRanges;

    bool done = store_in(FBO_NODE("debug"), "1") && store_in(FBO_NODE("fbo_exe_level"), "0");
    // The driver gets this one when the first zone is done.
    const int whole_file = open_output(FBO_NODE("fbo_wholefile_enable"));
    for (const char* zone = request; done && zone < end;) {
        const bool is_first = zone == request;
        zone = next_zone(zone, end, ranges, list);
        done = zone != NULL && run_zone(list, before, after) &&
               (!is_first || store(whole_file, "1"));
        if (is_first) close(whole_file);
    }
    return done && read_number_in(FBO_NODE("fbo2_linear_map_state")) != 1;
}
