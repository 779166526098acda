#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <string_view>

namespace soak {

/** What the partition with the boot-LUN record may hold: every byte of it. */
class Partition {
  public:
    /** @param dump see sim::Simulator::gsort(). */
    explicit Partition(std::string_view dump);

    /**
     * Changes what the service may change in the course of `trace`: the number of the LUN that
     * the snapshot protects; and what a read of the record left out is 0. A size that the
     * partition was given by a note "gsort_size NUMBER" is taken over.
     *
     * @throws Violation if anything else was written, or at another place.
     */
    void follow(std::string_view trace);

    /** Where `other` differs first, in words; empty if it does not. */
    std::string difference(const Partition& other) const;

  private:
    void resize(off_t size);
    std::string bytes(off_t offset, size_t count) const;
    void store(off_t offset, std::string_view bytes);
    void followRead(std::string_view outcome);
    void followWrite(std::string_view outcome);

    off_t size_ = 0;
    /** The bytes that are not 0. */
    std::map<off_t, char> bytes_;
    /** The record as it was read last, before it is written back. */
    std::string record_;
};

}  // namespace soak
