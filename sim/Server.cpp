#include "sim/Server.h"

#define FUSE_USE_VERSION 35
#include <fuse3/fuse.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "sim/Names.h"
#include "sim/Trace.h"

namespace sim {

namespace {

using android::base::StartsWith;

constexpr char kControls[] = "/.sim/";

bool isControl(const std::string& path) {
    return StartsWith(path, kControls);
}

/** An open file. */
struct OpenFile {
    /** The losses of the file when it was opened. */
    size_t losses;
    /** The text that it reads, asked for at offset 0 and kept for the offsets after. */
    std::string text;
};

Server& server() {
    return *static_cast<Server*>(fuse_get_context()->private_data);
}

OpenFile& openFile(fuse_file_info* info) {
    return *reinterpret_cast<OpenFile*>(info->fh);
}

/** Whether the open file is not there any more: its driver has been unbound, for one. */
bool isDead(const char* path, fuse_file_info* info) {
    return openFile(info).losses != server().tree().losses(path);
}

int getattr(const char* path, struct stat* attributes, fuse_file_info*) {
    return server().tree().attributes(path, *attributes);
}

int readlink(const char* path, char* buffer, size_t size) {
    std::string target;
    const int result = server().tree().link(path, target);
    if (result == 0) snprintf(buffer, size, "%s", target.c_str());
    return result;
}

int readdir(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*,
            fuse_readdir_flags) {
    std::vector<std::string> names = {".", ".."};
    const int result = server().tree().list(path, names);
    for (const std::string& name : names) fill(buffer, name.c_str(), nullptr, 0, {});
    return result;
}

int open(const char* path, fuse_file_info* info) {
    const int mode = info->flags & O_ACCMODE;
    const int result = server().tree().open(path, mode != O_WRONLY, mode != O_RDONLY);
    if (result == 0)
        info->fh = reinterpret_cast<uint64_t>(new OpenFile{server().tree().losses(path), ""});
    return result;
}

int create(const char*, mode_t, fuse_file_info*) {
    // As in sysfs, nobody but the driver can create a file.
    return -EACCES;
}

int truncate(const char*, off_t, fuse_file_info*) {
    return 0;
}

int release(const char*, fuse_file_info* info) {
    delete &openFile(info);
    return 0;
}

int read(const char* path, char* buffer, size_t size, off_t offset, fuse_file_info* info) {
    const bool is_dead = isDead(path, info);
    if (server().tree().isDevice(path)) {
        return static_cast<int>(server().readAt(path, is_dead, buffer, size, offset));
    }
    std::string& text = openFile(info).text;
    if (offset == 0) {
        text.clear();
        if (const int result = server().read(path, is_dead, text); result < 0) return result;
    }
    if (static_cast<size_t>(offset) >= text.size()) return 0;
    return static_cast<int>(text.copy(buffer, size, offset));
}

int write(const char* path, const char* text, size_t size, off_t offset, fuse_file_info* info) {
    const bool is_dead = isDead(path, info);
    if (server().tree().isDevice(path)) {
        return static_cast<int>(server().writeAt(path, is_dead, {text, size}, offset));
    }
    return server().write(path, is_dead, {text, size});
}

int statfs(const char* path, struct statvfs* space) {
    return server().tree().space(path, *space);
}

void* init(fuse_conn_info* connection, fuse_config* config) {
    // The kernel caches nothing: every open, read and write reaches the device.
    config->direct_io = 1;
    config->entry_timeout = config->attr_timeout = config->negative_timeout = 0;
    connection->max_write = 1 << 20;
    return fuse_get_context()->private_data;
}

}  // namespace

Server::Server(const Profile& profile, bool mtk)
    : profile_(profile), mtk_(mtk), device_(profile, mtk, tree_) {
    tree_.onWait([this](int64_t seconds) {
        trace("wait " + std::to_string(seconds));
        device_.advance(seconds);
    });
    addControls();
}

void Server::addControls() {
    const auto add = [this](const char* name, File file) {
        tree_.addFile(std::string(kControls) + name, std::move(file));
    };
    add("set", {nullptr, [this](std::string_view text) { return set(text); }});
    add("problem", {[this] { return problem_; }, nullptr});
    add("clock", {nullptr, [this](std::string_view text) {
                      int64_t seconds = 0;
                      android::base::ParseInt(std::string(text), &seconds);
                      trace("sleep " + std::to_string(seconds));
                      device_.advance(seconds);
                      return 0;
                  }});
    add("note", {nullptr, [this](std::string_view text) {
                     if (records_) trace_.append(text) += '\n';
                     return 0;
                 }});
    add("trace", {[this] { return trace_; },
                  [this](std::string_view) {
                      trace_.clear();
                      return 0;
                  }});
    add("optimised", {[this] { return device_.flash().optimised(); },
                      [this](std::string_view text) {
                          return device_.flash().takeOptimised(text) ? 0 : -EINVAL;
                      }});
    add("unmapped", {[this] { return device_.flash().unmapped(); }, nullptr});
}

int Server::set(std::string_view assignment) {
    try {
        apply(assignment);
        return 0;
    } catch (const std::invalid_argument& error) {
        problem_ = error.what();
        return -EINVAL;
    }
}

void Server::apply(std::string_view assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string_view::npos) throw std::invalid_argument("it is not KEY=VALUE");
    const std::string key(assignment.substr(0, equals));
    const std::string_view value = assignment.substr(equals + 1);
    const size_t dot = key.find('.');
    if (dot != std::string::npos) {
        applyToNode(key.substr(0, dot), key.substr(dot + 1), value);
    } else if (key == "record") {
        records_ = value == "1";
    } else if (key == "print") {
        prints_ = value == "1";
    } else if (key == "unscript") {
        tree_.unscript(find(std::string(value)));
    } else if (key == "product") {
        device_.setProduct(std::string(value));
    } else if (key == "revision") {
        device_.setRevision(std::string(value));
    } else if (key == "gsort_size") {
        constexpr off_t kMaxSize = 1 << 30;
        off_t size = 0;
        if (!android::base::ParseInt(std::string(value), &size, off_t{0}, kMaxSize)) {
            throw std::invalid_argument("it is not from 0 to " + std::to_string(kMaxSize));
        }
        device_.partition().resize(size);
    } else if (key == "userdata") {
        device_.linkUserdata(std::string(value));
    } else if (!Settings::knows(key) && !key.empty() && !findNodes(key).empty()) {
        throw std::invalid_argument("this is a node; did you mean node." + key + "=?");
    } else {
        device_.settings().set(key, value);
        device_.applySettings(key);
    }
}

void Server::applyToNode(std::string_view key, const std::string& node, std::string_view value) {
    if (key == "node") {
        tree_.scriptReads(find(node), value);
    } else if (key == "store") {
        tree_.scriptStores(find(node), value);
    } else if (key == "fault") {
        tree_.setFaults(find(node), value);
    } else if (key == "after") {
        applyAfter(node, value);
    } else {
        throw std::invalid_argument("with a dot there are prop, node, store, fault and after only");
    }
}

void Server::applyAfter(const std::string& node_and_number, std::string_view assignment) {
    const size_t dot = node_and_number.rfind('.');
    size_t number = 0;
    if (dot == std::string::npos ||
        !android::base::ParseUint(node_and_number.substr(dot + 1), &number) || number == 0) {
        throw std::invalid_argument("the number of a store is missing, as in after.debug.2");
    }
    const Tree::Paths paths = find(node_and_number.substr(0, dot));
    // What is wrong with it, is wrong now.
    Server(profile_, mtk_).apply(assignment);
    tree_.checkUse(paths, Use::kWrite);
    for (const std::string& path : paths) {
        Stores& stores = stores_[path];
        stores.then.emplace(stores.count + number, assignment);
    }
}

void Server::countStore(const std::string& path) {
    Stores& stores = stores_[path];
    const auto [begin, end] = stores.then.equal_range(++stores.count);
    // What is applied may have more applied later.
    std::vector<std::string> assignments;
    for (auto then = begin; then != end; ++then) assignments.push_back(then->second);
    for (const std::string& assignment : assignments) set(assignment);
}

Tree::Paths Server::findNodes(const std::string& name) const {
    Tree::Paths paths = tree_.find(name);
    // The controls are no nodes.
    paths.erase(std::remove_if(paths.begin(), paths.end(), isControl), paths.end());
    return paths;
}

Tree::Paths Server::find(const std::string& name) const {
    if (name.empty()) throw std::invalid_argument("the name of a node is missing");
    if (Tree::Paths paths = findNodes(name); !paths.empty()) return paths;
    for (const Profile& other : profiles()) {
        Tree tree;
        const Device device(other, mtk_, tree);
        if (!tree.find(name).empty()) {
            throw std::invalid_argument(profile_.name + " has no node " + name + ", but " +
                                        other.name + " has");
        }
    }
    std::set<std::string> names;
    for (const std::string& path : findNodes("")) names.insert(nameOf(path));
    throw std::invalid_argument("no node is called " + name + didYouMean(nameOf(name), names));
}

void Server::trace(const std::string& line) {
    if (records_) trace_ += line + "\n";
    if (prints_) {
        dprintf(STDERR_FILENO, "%8lld s  %s\n", static_cast<long long>(device_.now()),
                line.c_str());
    }
}

int Server::read(const std::string& path, bool is_dead, std::string& text) {
    const int result = is_dead ? -ENODEV : tree_.read(path, text);
    if (!isControl(path)) {
        text.resize(std::min(text.size(), kPageSize - 1));
        trace("read " + nameOf(path) + " " + (result < 0 ? strerror(-result) : quote(text)));
    }
    return result;
}

int Server::write(const std::string& path, bool is_dead, std::string_view text) {
    if (!isControl(path)) text = text.substr(0, kPageSize);
    const int result = is_dead ? -ENODEV : tree_.write(path, text);
    if (!isControl(path)) {
        trace("write " + nameOf(path) + " " + quote(text) +
              (result < 0 ? std::string(" ") + strerror(-result) : ""));
        if (!is_dead) countStore(path);
    }
    return result < 0 ? result : static_cast<int>(text.size());
}

ssize_t Server::readAt(const std::string& path, bool is_dead, char* bytes, size_t count,
                       off_t offset) {
    const ssize_t size = is_dead ? -ENODEV : tree_.readAt(path, bytes, count, offset);
    trace("read " + nameOf(path) + " " + std::to_string(count) + " at " + std::to_string(offset) +
          ": " + (size < 0 ? strerror(static_cast<int>(-size)) : std::to_string(size)));
    return size;
}

ssize_t Server::writeAt(const std::string& path, bool is_dead, std::string_view bytes,
                        off_t offset) {
    const ssize_t size = is_dead ? -ENODEV : tree_.writeAt(path, bytes, offset);
    trace("write " + nameOf(path) + " " + std::to_string(bytes.size()) + " at " +
          std::to_string(offset) + ": " +
          (size < 0 ? strerror(static_cast<int>(-size)) : std::to_string(size)));
    if (!is_dead) countStore(path);
    return size;
}

void Server::run(int fd) {
    fuse_operations operations{};
    operations.getattr = getattr;
    operations.readlink = readlink;
    operations.readdir = readdir;
    operations.open = sim::open;
    operations.create = create;
    operations.truncate = truncate;
    operations.release = release;
    operations.read = sim::read;
    operations.write = sim::write;
    operations.statfs = statfs;
    operations.init = init;

    char name[] = "sim";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    fuse* session = fuse_new(&args, &operations, sizeof(operations), this);
    if (session == nullptr) return;
    if (fuse_mount(session, ("/dev/fd/" + std::to_string(fd)).c_str()) == 0) fuse_loop(session);
    fuse_destroy(session);
}

}  // namespace sim
