#include "sim/Tree.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <android-base/strings.h>

namespace sim {

std::string describeFaults() {
    std::string words;
    for (const Fault& fault : kFaults) words += std::string(words.empty() ? "" : ", ") + fault.word;
    return words;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

Tree::Entry& Tree::add(const std::string& path, mode_t type) {
    const auto [entry, added] = entries_.try_emplace(path);
    if (added) {
        entry->second.type = type;
        const size_t slash = path.rfind('/');
        const std::string name = nameOf(path);
        add(slash == 0 ? "/" : path.substr(0, slash), S_IFDIR)
                .names.emplace(std::hash<std::string>()(name), name);
    }
    return entry->second;
}

void Tree::addDirectory(const std::string& path) {
    add(path, S_IFDIR);
}

void Tree::addFile(const std::string& path, File file) {
    add(path, S_IFREG).file = std::move(file);
}

void Tree::addLink(const std::string& path, std::string target) {
    add(path, S_IFLNK).target = std::move(target);
}

void Tree::setSpace(const std::string& path, std::function<struct statvfs()> space) {
    addDirectory(path);
    spaces_[path] = std::move(space);
}

std::vector<std::string> Tree::find(const std::string& name) const {
    std::vector<std::string> paths;
    for (const auto& [path, entry] : entries_) {
        if (path == name || name.empty() || android::base::EndsWith(path, "/" + name))
            paths.push_back(path);
    }
    return paths;
}

void Tree::checkUse(const Paths& paths, Use use) const {
    const bool reads = use == Use::kOpenToRead || use == Use::kRead;
    for (const std::string& path : paths) {
        const Entry& entry = entries_.at(path);
        if (use == Use::kLookUp || (entry.type == S_IFREG && entry.can(reads))) return;
    }
    throw std::invalid_argument(paths[0] + " is never " + (reads ? "read" : "written"));
}

void Tree::put(Scripts& scripts, const Paths& paths, const Script& script) {
    for (const std::string& path : paths) scripts[path] = script;
}

void Tree::scriptReads(const Paths& paths, std::string_view script) {
    checkUse(paths, Use::kRead);
    put(read_scripts_, paths, Script::parse(script, !isDevice(paths[0])));
}

void Tree::scriptStores(const Paths& paths, std::string_view script) {
    checkUse(paths, Use::kWrite);
    put(store_scripts_, paths, Script::parse(script, false));
}

void Tree::unscript(const Paths& paths) {
    for (const std::string& path : paths) {
        read_scripts_.erase(path);
        store_scripts_.erase(path);
    }
}

void Tree::setFaults(const Paths& paths, std::string_view words) {
    std::vector<Fault> faults;
    for (const std::string& word : android::base::Split(std::string(words), "/")) {
        const auto* fault = std::find_if(std::begin(kFaults), std::end(kFaults),
                                         [&](const Fault& kind) { return word == kind.word; });
        if (fault != std::end(kFaults)) {
            checkUse(paths, fault->refused);
            faults.push_back(*fault);
        } else if (word != "none") {
            throw std::invalid_argument("a node cannot be " + word + ", only " + describeFaults());
        }
    }
    for (const std::string& path : paths) {
        faults_[path] = faults;
        if (refusal(path, Use::kLookUp) != 0) ++losses_[path];
    }
}

size_t Tree::losses(const std::string& path) const {
    size_t losses = 0;
    for (const auto& [lost, times] : losses_) {
        if (path == lost || android::base::StartsWith(path, lost + "/")) losses += times;
    }
    return losses;
}

Answer Tree::answer(Scripts& scripts, const std::string& path) {
    const auto script = scripts.find(path);
    if (script == scripts.end()) return {};
    Answer answer = script->second.take();
    if (answer.wait > 0) wait_(answer.wait);
    return answer;
}

const Tree::Entry* Tree::lookUp(const std::string& path) const {
    const auto entry = entries_.find(path);
    if (entry == entries_.end() || refusal(path, Use::kLookUp) != 0) return nullptr;
    return &entry->second;
}

int Tree::refusal(const std::string& path, Use use) const {
    const auto faults = faults_.find(path);
    if (faults == faults_.end()) return 0;
    for (const Fault& fault : faults->second) {
        if (fault.refused == use) return -fault.error;
    }
    return 0;
}

int Tree::attributes(const std::string& path, struct stat& attributes) const {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENOENT;
    const mode_t readable = entry->can(true) ? 0444 : 0;
    const mode_t writable = entry->can(false) ? 0200 : 0;
    attributes = {};
    attributes.st_nlink = 1;
    switch (entry->type) {
        case S_IFREG:
            attributes.st_mode = S_IFREG | readable | writable;
            // As in sysfs, whatever the length of the text is.
            attributes.st_size = 4096;
            break;
        case S_IFLNK:
            attributes.st_mode = S_IFLNK | 0777;
            attributes.st_size = static_cast<off_t>(entry->target.size());
            break;
        default:
            attributes.st_mode = S_IFDIR | 0755;
    }
    return 0;
}

int Tree::link(const std::string& path, std::string& target) const {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENOENT;
    if (entry->type != S_IFLNK) return -EINVAL;
    target = entry->target;
    return 0;
}

int Tree::list(const std::string& path, std::vector<std::string>& names) const {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENOENT;
    if (entry->type != S_IFDIR) return -ENOTDIR;
    const std::string directory = path == "/" ? path : path + "/";
    for (const auto& [hash, name] : entry->names) {
        if (lookUp(directory + name) != nullptr) names.push_back(name);
    }
    return 0;
}

int Tree::space(const std::string& path, struct statvfs& space) const {
    if (lookUp(path) == nullptr) return -ENOENT;
    space = {};
    for (const auto& [below, answer] : spaces_) {
        if (android::base::StartsWith(path, below)) space = answer();
    }
    return 0;
}

int Tree::open(const std::string& path, bool reads, bool writes) const {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENOENT;
    if ((reads && !entry->can(true)) || (writes && !entry->can(false))) return -EACCES;
    const int refused = reads ? refusal(path, Use::kOpenToRead) : 0;
    return refused == 0 && writes ? refusal(path, Use::kOpenToWrite) : refused;
}

int Tree::read(const std::string& path, std::string& text) {
    const Entry* entry = lookUp(path);
    // As an open sysfs file whose driver has gone.
    if (entry == nullptr) return -ENODEV;
    if (const int refused = refusal(path, Use::kRead); refused != 0) return refused;
    const Answer answer = this->answer(read_scripts_, path);
    text = answer.is_own ? entry->file.show() : answer.text;
    return -answer.error;
}

bool Tree::isDevice(const std::string& path) const {
    const Entry* entry = lookUp(path);
    return entry != nullptr && entry->file.read_at;
}

ssize_t Tree::readAt(const std::string& path, char* bytes, size_t count, off_t offset) {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENODEV;
    if (const int refused = refusal(path, Use::kRead); refused != 0) return refused;
    const Answer answer = this->answer(read_scripts_, path);
    if (!answer.is_own) return -answer.error;
    return entry->file.read_at(bytes, count, offset);
}

ssize_t Tree::writeAt(const std::string& path, std::string_view bytes, off_t offset) {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENODEV;
    if (const int refused = refusal(path, Use::kWrite); refused != 0) return refused;
    const Answer answer = this->answer(store_scripts_, path);
    if (!answer.is_own) return -answer.error;
    return entry->file.write_at(bytes.data(), bytes.size(), offset);
}

int Tree::write(const std::string& path, std::string_view text) {
    const Entry* entry = lookUp(path);
    if (entry == nullptr) return -ENODEV;
    if (const int refused = refusal(path, Use::kWrite); refused != 0) return refused;
    const Answer answer = this->answer(store_scripts_, path);
    if (!answer.is_own) return -answer.error;
    return entry->file.store(text);
}

}  // namespace sim
