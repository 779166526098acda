#include "bench/floor.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum {
    kPathLength = 256,
    kTextLength = 4096,
    kListLength = 4096,
    kMaxRanges = 127,
    kClears = 11,
    kClearSeconds = 30,
    kLooks = 200,
    kLookSeconds = 6,
    kAccepts = 10,
    kAcceptSeconds = 30,
    kEraseSeconds = 5,
    kReportLength = 29,
    kLevelIndex = 10,
};

/** The controller's directory, and where the path of a node goes on behind it. */
static char path[kPathLength] = "/sys/bus/platform/drivers/ufshcd-qcom/";
static char* path_end;

static int retries;

bool floor_find_controller(void) {
    if (path_end != NULL) return true;
    DIR* directory = opendir(path);
    if (directory == NULL) return false;
    const struct dirent* entry;
    while ((entry = readdir(directory)) != NULL) {
        if (strstr(entry->d_name, "ufs") == NULL) continue;
        path_end = stpcpy(path + strlen(path), entry->d_name);
        break;
    }
    closedir(directory);
    return path_end != NULL;
}

static int open_node(const char* node, int flags) {
    memcpy(path_end, node, strlen(node) + 1);
    return open(path, flags | O_CLOEXEC, 0666);
}

static int open_input(const char* node) {
    return open_node(node, O_RDONLY);
}

static int open_output(const char* node) {
    return open_node(node, O_WRONLY | O_CREAT | O_TRUNC);
}

/** Offers a text as one store, and what is left of it as a further one. */
static bool store(int fd, const char* text, size_t length) {
    while (length > 0) {
        const ssize_t size = write(fd, text, length);
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) return false;
        text += size;
        length -= size;
    }
    return true;
}

/** Stores a text that fits a list, and a line feed. */
static bool store_line(int fd, const char* text, size_t length) {
    char line[kListLength];
    if (length >= sizeof(line)) return false;
    memcpy(line, text, length);
    line[length] = '\n';
    return store(fd, line, length + 1);
}

/** Asks for the start of a node's text. */
static ssize_t read_start(int fd, char* text) {
    const ssize_t size = pread(fd, text, kTextLength - 1, 0);
    if (size >= 0) text[size] = '\0';
    return size;
}

/** Asks for the number that a node holds; -1 if it holds none. */
static int read_number(int fd) {
    char text[kTextLength];
    return read_start(fd, text) > 0 ? atoi(text) : -1;
}

static int read_node(const char* node) {
    const int fd = open_input(node);
    if (fd < 0) return -1;
    const int number = read_number(fd);
    close(fd);
    return number;
}

bool floor_fbo_support(void) {
    char support = '0';
    const int fd = open_node("/ufsfbo/fbo_support", O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    const bool answered = read(fd, &support, 1) == 1;
    close(fd);
    return answered && support == '1';
}

bool floor_eua_support(void) {
    char inquiry[36];
    if (read_node("/ufseua/eua_support") != 1) return false;
    const int fd = open_input("/host0/target0:0:0/0:0:0:0/inquiry");
    if (fd < 0) return false;
    const bool known = pread(fd, inquiry, sizeof(inquiry), 0) == sizeof(inquiry);
    close(fd);
    return known;
}

int floor_snapshot_status(void) {
    static const char* const kWords[] = {
            "idle",         "inprogress",     "complete_backup", "complete_restore",
            "drop_by_host", "drop_by_device", "internal_error"};
    char text[kTextLength];
    const int fd = open_input("/ufssnapshot/status");
    if (fd < 0) return -1;
    const ssize_t size = read_start(fd, text);
    close(fd);
    if (size < 0) return -1;
    text[strcspn(text, "\n")] = '\0';
    for (int status = 0; status < 7; ++status) {
        if (strcmp(text, kWords[status]) == 0) return status;
    }
    return 0;
}

/** Stores 0 until an operation is idle. */
static bool clear(const char* control_node, const char* state_node) {
    const int control = open_output(control_node);
    const int state = open_input(state_node);
    int now = read_number(state);
    for (int stores = 0; now != 0 && stores < kClears; ++stores) {
        if (stores > 0) sleep(kClearSeconds);
        store(control, "0\n", 2);
        now = read_number(state);
    }
    close(state);
    close(control);
    return now == 0;
}

/** Looks at a state, again and again while it is `ongoing`. */
static int await_end(int fd, int ongoing) {
    int state = read_number(fd);
    for (int looks = 0; state == ongoing && looks < kLooks; ++looks) {
        sleep(kLookSeconds);
        state = read_number(fd);
        ++retries;
    }
    return state;
}

/** Reads the report, whose length nobody tells, to its end. */
static bool read_level(long* level) {
    char report[kTextLength];
    ssize_t size;
    size_t length = 0;
    const int fd = open_input("/ufsfbo/fbo_get_lr_frag_level");
    if (fd < 0) return false;
    while ((size = pread(fd, report + length, sizeof(report) - length, (off_t)length)) > 0) {
        length += size;
    }
    close(fd);
    if (length < kReportLength) return false;
    *level = report[kLevelIndex] == 'a' ? 10 : report[kLevelIndex] - '0';
    return true;
}

/** Starts an operation and waits for its end: whether that is `end`. */
static bool run_operation(const char* control_node, const char* command, const char* state_node,
                          int ongoing, int end) {
    const int control = open_output(control_node);
    if (control < 0) return false;
    store_line(control, command, strlen(command));
    const int state = open_input(state_node);
    const bool ended = await_end(state, ongoing) == end;
    close(state);
    close(control);
    return ended;
}

/** Sends the list, and starts the analysis while the node of its state is open. */
static bool analyse(const char* list, size_t length, const char* control_node,
                    const char* state_node, bool is_accepted, int ongoing, int analysed) {
    const int sent = open_output("/ufsfbo/fbo_send_lr_list");
    if (sent < 0) return false;
    store_line(sent, list, length);
    const int state = open_input(state_node);
    // A list that is not accepted at once is only waited for here.
    if (is_accepted) {
        for (int looks = 0; read_number(state) != 1 && looks < kAccepts; ++looks) {
            sleep(kAcceptSeconds);
        }
    }
    close(sent);
    const int control = open_output(control_node);
    store(control, "1\n", 2);
    const bool ended = await_end(state, ongoing) == analysed;
    close(state);
    close(control);
    return ended;
}

bool floor_zone40(const char* list, size_t length, struct floor_levels* levels) {
    static const char kControl[] = "/ufsfbo/fbo_operation_control";
    static const char kState[] = "/ufsfbo/fbo_prog_state";
    return clear(kControl, kState) && analyse(list, length, kControl, kState, false, 1, 2) &&
           read_level(&levels->before) && run_operation(kControl, "2", kState, 1, 3) &&
           clear(kControl, kState) && analyse(list, length, kControl, kState, false, 1, 2) &&
           read_level(&levels->after);
}

static bool clear31(void) {
    return clear("/ufsfbo/fbs_flc_enable", "/ufsfbo/fbs_flc_ops") &&
           clear("/ufsfbo/fbs_defrag_enable", "/ufsfbo/fbs_defrag_ops");
}

static bool analyse31(const char* list, size_t length) {
    return analyse(list, length, "/ufsfbo/fbs_flc_enable", "/ufsfbo/fbs_flc_ops", true, 2, 3);
}

bool floor_zone31(const char* list, size_t length, struct floor_levels* levels) {
    return clear31() && analyse31(list, length) && read_level(&levels->before) &&
           run_operation("/ufsfbo/fbs_defrag_enable", "1", "/ufsfbo/fbs_defrag_ops", 2, 0) &&
           clear31() && analyse31(list, length) && read_level(&levels->after);
}

bool floor_cut(const char* request, size_t length, int ranges, floor_zone take, void* context) {
    const char* const end = request + length;
    const char* zone = request;
    const char* comma = request;
    int numbers = 0;
    while ((comma = memchr(comma, ',', end - comma)) != NULL) {
        if (++numbers == 2 * ranges) {
            if (!take(context, zone, comma - zone)) return false;
            zone = comma + 1;
            numbers = 0;
        }
        ++comma;
    }
    return numbers == 0 || take(context, zone, end - 1 - zone);
}

/** A run: the sums, and what is stored once its first zone is done. */
struct run {
    struct floor_levels* sums;
    int whole_file;
};

static bool prepare(struct run* run) {
    const int debug = open_output("/ufsfbo/debug");
    store(debug, "1", 1);
    close(debug);
    const int level = open_output("/ufsfbo/fbo_exe_level");
    store(level, "0", 1);
    close(level);
    run->whole_file = open_output("/ufsfbo/fbo_wholefile_enable");
    return run->whole_file >= 0;
}

static bool run_zone(void* context, const char* zone, size_t length) {
    struct run* run = context;
    struct floor_levels levels = {0, 0};
    const bool is_first = run->whole_file < 0;
    if (is_first && !prepare(run)) return false;
    const bool is31 = read_node("/ufsfbo/is_ufs31") == 1;
    if (!(is31 ? floor_zone31 : floor_zone40)(zone, length, &levels)) return false;
    if (is_first) {
        store(run->whole_file, "1", 1);
        close(run->whole_file);
    }
    run->sums->before += levels.before;
    run->sums->after += levels.after;
    return true;
}

bool floor_trigger(const char* request, size_t length, struct floor_levels* sums) {
    int ranges = read_node("/ufsfbo/fbo_max_lrc");
    if (ranges <= 0) return false;
    if (ranges > kMaxRanges) ranges = kMaxRanges;
    *sums = (struct floor_levels){0, 0};
    struct run run = {sums, -1};
    if (!floor_cut(request, length, ranges, run_zone, &run)) return false;
    // A device that is well leaves no retries to report, and maps nothing here.
    return retries == 0 && read_node("/ufsfbo/fbo2_linear_map_state") == 0;
}

/** As store_line(), for a text of any length: `line` holds it. */
static bool store_item(int fd, char* line, const char* text, size_t length) {
    memcpy(line, text, length);
    line[length] = '\n';
    return store(fd, line, length + 1);
}

bool floor_erase(const char* list, size_t length) {
    const char* const end = list + length;
    const int fd = open_output("/ufseua/eua_file_lba_unmap");
    char* line = malloc(length + 1);
    bool done = fd >= 0 && line != NULL;
    while (done && list < end) {
        const char* colon = memchr(list, ':', end - list);
        if (colon == NULL) colon = end;
        done = store_item(fd, line, list, colon - list);
        sleep(kEraseSeconds);
        list = colon + 1;
    }
    free(line);
    close(fd);
    return done;
}

/** Whether an item, RULE:SWITCH, is for version 1.0 and says ON. */
static bool switches_on(const char* item, size_t length) {
    return memmem(item, length, "ON", 2) != NULL && length > 3 && memcmp(item, "1.0:", 4) == 0;
}

bool floor_version(const char* text, size_t length) {
    const char* const end = text + length;
    if (!floor_fbo_support()) return false;
    while (text < end) {
        const char* comma = memchr(text, ',', end - text);
        if (comma == NULL) comma = end;
        if (switches_on(text, comma - text)) return true;
        text = comma + 1;
    }
    return false;
}

static void* wait_for_ever(void* argument) {
    for (;;) pause();
    return argument;
}

bool floor_start_thread(void) {
    pthread_t thread;
    return pthread_create(&thread, NULL, wait_for_ever, NULL) == 0 && pthread_detach(thread) == 0;
}
