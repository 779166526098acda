#pragma once

#include <filesystem>

namespace bench {

/**
 * A phone whose nodes are plain files below a temporary directory, which goes with the object: they
 * answer at the cost of a file system in memory or on disk, and take whatever is stored.
 */
class PlainPhone {
  public:
    /** @throws std::filesystem::filesystem_error, std::runtime_error if it cannot be made. */
    PlainPhone();
    ~PlainPhone();
    PlainPhone(const PlainPhone&) = delete;
    PlainPhone& operator=(const PlainPhone&) = delete;

    /** Where its files are. */
    const std::filesystem::path& root() const { return root_; }

    /**
     * Makes the phone below `root` all that this process sees, for good. A sleep then takes no
     * time. Needs root.
     *
     * @throws std::runtime_error if the system does not allow it.
     */
    static void enter(const std::filesystem::path& root);

  private:
    std::filesystem::path root_;
};

}  // namespace bench
