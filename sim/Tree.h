#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/Script.h"

namespace sim {

/** The most that a store takes, and more than a show can give: a page, as in sysfs. */
constexpr size_t kPageSize = 4096;

/** A file of the simulated phone, as its driver serves it. */
struct File {
    /** The text that a reader gets, less than a page; a file without it cannot be read. */
    std::function<std::string()> show;
    /**
     * Takes one store, that is what one write(2) has of a page, and returns 0 or a negative errno;
     * a file without it cannot be written.
     */
    std::function<int(std::string_view)> store;

    // A device file has these instead: bytes at an offset, as pread(2) and pwrite(2) do, with a
    // negative errno for a failure.
    std::function<ssize_t(char* bytes, size_t count, off_t offset)> read_at = nullptr;
    std::function<ssize_t(const char* bytes, size_t count, off_t offset)> write_at = nullptr;
};

/** The uses of a file that a fault can refuse. */
enum class Use { kLookUp, kOpenToRead, kOpenToWrite, kRead, kWrite };

/** What can be wrong with a file. Add a line to kFaults to add a kind. */
struct Fault {
    /** What the fault is called when it is set. */
    const char* word;
    Use refused;
    /** The errno that the caller gets; for kLookUp always ENOENT, or ENODEV on an open file. */
    int error;
};

constexpr Fault kFaults[] = {
        {"missing", Use::kLookUp, ENOENT},         {"unreadable", Use::kOpenToRead, EACCES},
        {"unwritable", Use::kOpenToWrite, EACCES}, {"read-error", Use::kRead, EIO},
        {"write-error", Use::kWrite, EIO},
};

/** The words of kFaults, for a help text. */
std::string describeFaults();

/** The files of the simulated phone under their absolute paths. */
class Tree {
  public:
    void addDirectory(const std::string& path);
    void addFile(const std::string& path, File file);
    void addLink(const std::string& path, std::string target);
    /** Has statfs(2) answer with `space` at `path` and below. */
    void setSpace(const std::string& path, std::function<struct statvfs()> space);

    /** The paths that are `name`, or end in "/" and `name`; all if it is empty. */
    std::vector<std::string> find(const std::string& name) const;
    /** The paths of all files, links and directories. */
    std::vector<std::string> paths() const { return find(""); }

    /*
     * These are for all of some paths. They throw std::invalid_argument, and change nothing, if the
     * text is none or cannot have an effect.
     */
    using Paths = std::vector<std::string>;
    /** Throws unless `use` can be made of one of the paths. */
    void checkUse(const Paths& paths, Use use) const;
    /** Has files answer their readers as Script::parse() reads it. */
    void scriptReads(const Paths& paths, std::string_view script);
    /** Has files answer stores so, without a text. */
    void scriptStores(const Paths& paths, std::string_view script);
    /** Has files answer by themselves again. */
    void unscript(const Paths& paths);
    /** Sets what is wrong with files: words of kFaults with "/" between, or "none". */
    void setFaults(const Paths& paths, std::string_view words);
    /** Has a script's wait let the seconds pass by `wait`. */
    void onWait(std::function<void(int64_t seconds)> wait) { wait_ = std::move(wait); }

    // The answers to the kernel: 0 or more, or a negative errno.
    int attributes(const std::string& path, struct stat& attributes) const;
    int link(const std::string& path, std::string& target) const;
    int list(const std::string& path, std::vector<std::string>& names) const;
    int space(const std::string& path, struct statvfs& space) const;
    int open(const std::string& path, bool reads, bool writes) const;
    /**
     * How often the file at `path` has gone missing, itself or a directory above it. A file that
     * was opened before it did so last is dead, even if another one is there now.
     */
    size_t losses(const std::string& path) const;
    int read(const std::string& path, std::string& text);
    int write(const std::string& path, std::string_view text);
    /** Whether the file at `path` is one of bytes at an offset. */
    bool isDevice(const std::string& path) const;
    ssize_t readAt(const std::string& path, char* bytes, size_t count, off_t offset);
    ssize_t writeAt(const std::string& path, std::string_view bytes, off_t offset);

  private:
    struct Entry {
        mode_t type = S_IFDIR;
        File file;
        std::string target;
        /** The names in a directory by a hash of them, the order in which sysfs lists them. */
        std::multimap<size_t, std::string> names;

        /** Whether it can be read, or written. */
        bool can(bool read) const {
            return read ? file.show || file.read_at : file.store || file.write_at;
        }
    };
    using Scripts = std::map<std::string, Script>;

    /** Puts `script` on each path. */
    static void put(Scripts& scripts, const Paths& paths, const Script& script);
    /** The next answer that a script has for `path`, once its time has come. */
    Answer answer(Scripts& scripts, const std::string& path);

    Entry& add(const std::string& path, mode_t type);
    const Entry* lookUp(const std::string& path) const;
    /** The negative errno of a fault of the file that refuses `use`; 0 if there is none. */
    int refusal(const std::string& path, Use use) const;

    std::map<std::string, Entry> entries_ = {{"/", {}}};
    std::map<std::string, std::function<struct statvfs()>> spaces_;
    Scripts read_scripts_;
    Scripts store_scripts_;
    std::function<void(int64_t)> wait_;
    std::map<std::string, std::vector<Fault>> faults_;
    std::map<std::string, size_t> losses_;
};

/** The last component of `path`. */
std::string nameOf(const std::string& path);

}  // namespace sim
