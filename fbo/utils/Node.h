#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include <android-base/unique_fd.h>

namespace vendor::nivora::hardware::fbo::implementation {

using ::android::base::unique_fd;

/** Opens an existing file with open(2)'s `flags`, closed on exec. */
unique_fd openFile(const std::string& path, int flags);

/** read(2), repeated while a signal interrupts it. */
ssize_t readFile(int fd, void* buffer, size_t size);

/**
 * Reads a driver's node. A reader whose node could not be opened, or fails to be read, reads
 * nothing; no error escapes.
 */
class NodeReader {
  public:
    /** Opens the node at `path` in place of the one before. False if it cannot be opened. */
    bool open(const std::string& path);
    void close();

    /**
     * Asks the driver afresh, from the start of the node, for its first word: leading white space
     * is skipped, the next white space ends it. `token` keeps its value if there is no word.
     */
    void readToken(std::string& token) const;

    /** Asks the driver afresh for everything the node holds, byte for byte. */
    std::string readAll() const;

  private:
    unique_fd fd_;
};

/**
 * Writes a driver's node. Text collects here until flush() or close() and reaches the driver in
 * one write(2), which the driver takes as one store. A text whose store failed is dropped, and so
 * is all further text until clear() or open(): what a driver has refused must not reach it later,
 * when it would erase or start something that nobody expects any more. No error escapes.
 */
class NodeWriter {
  public:
    NodeWriter() = default;
    ~NodeWriter() { close(); }
    NodeWriter(const NodeWriter&) = delete;
    NodeWriter& operator=(const NodeWriter&) = delete;

    /**
     * Closes the node before, if any, and opens the one at `path`, truncated. False if it cannot
     * be opened.
     */
    bool open(const std::string& path);

    /** Adds `text`; what is there already is stored first if it would become very long. */
    void put(std::string_view text);
    /** Adds `text` and a line feed, and flushes. */
    void putLine(std::string_view text);
    void flush();
    /** Forgets that a store failed. */
    void clear() { failed_ = false; }
    /** Flushes and closes. */
    void close();

  private:
    unique_fd fd_;
    /** Empty after a failure: nothing of it is ever stored again. */
    std::string pending_;
    bool failed_ = true;
};

}  // namespace vendor::nivora::hardware::fbo::implementation
