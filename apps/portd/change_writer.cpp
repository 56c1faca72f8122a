// change_writer.cpp: prints change records on a task of its own, so that a slow output never holds up events.
#include "change_writer.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace
{
constexpr unsigned waitForever = 0xFFFFFFFF;
constexpr int messageBytes = sizeof(ChangeRecord *); // NOLINT(bugprone-sizeof-expression): a message is a pointer
constexpr int pendByPriority = 1;
} // namespace

ChangeWriter::ChangeWriter(int descriptor, Counters &counted)
    : output(descriptor), counters(counted), pool(sizeof(ChangeRecord), records),
      queue(msgQxCreate(records + 1, messageBytes, pendByPriority, 0, 0, nullptr)),
      wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), outputGone(descriptor < 0)
{
    if (pool.getFlagError() != 0 || queue == nullptr || wake < 0)
        throw std::bad_alloc();
}

ChangeWriter::~ChangeWriter()
{
    stop(std::chrono::milliseconds(0));
    msgQxDelete(queue);
    close(wake);
}

void ChangeWriter::start(const std::string &title)
{
    thread = std::thread(&ChangeWriter::run, this, title);
}

void ChangeWriter::stop(std::chrono::milliseconds grace)
{
    if (!thread.joinable())
        return;
    giveUpAt = std::chrono::steady_clock::now() + grace;
    stopping = true;
    ChangeRecord *const end = nullptr;
    msgQxSend(queue, reinterpret_cast<const char *>(&end), messageBytes, 0, 0);
    const uint64_t one = 1;
    while (write(wake, &one, sizeof one) < 0 && errno == EINTR)
        continue;
    thread.join();
}

void ChangeWriter::put(const ChangeRecord &record)
{
    auto *block = static_cast<ChangeRecord *>(pool.vxAlloc(0));
    if (block == nullptr) {
        ++counters.linesLost;
        return;
    }
    new (block) ChangeRecord(record);
    msgQxSend(queue, reinterpret_cast<const char *>(&block), messageBytes, 0, 0);
}

void ChangeWriter::run(const std::string &title)
{
    printText(title);
    ChangeRecord *record = nullptr;
    while (msgQxRecv(queue, reinterpret_cast<char *>(&record), messageBytes, static_cast<int>(waitForever)) ==
               messageBytes &&
           record != nullptr)
        printRecord(record);
}

void ChangeWriter::printRecord(ChangeRecord *record)
{
    const std::string line = changeLine(*record);
    pool.vxFree(record);
    if (const uint64_t lost = counters.linesLost; lost != lossesTold) {
        printText("... " + std::to_string(lost - lossesTold) + " changes not printed: the output was too slow\n");
        lossesTold = lost;
    }
    printText(line);
    ++counters.linesPrinted;
}

void ChangeWriter::printText(const std::string &text)
{
    size_t done = 0;
    while (done < text.size() && !outputGone && waitForRoom()) {
        // A pipe that has room takes this much without blocking.
        const size_t some = std::min<size_t>(text.size() - done, PIPE_BUF);
        const ssize_t count = write(output, text.data() + done, some);
        if (count > 0)
            done += static_cast<size_t>(count);
        else if (count < 0 && errno != EINTR && errno != EAGAIN)
            outputGone = true; // nobody reads any more; the console goes on
    }
}

bool ChangeWriter::waitForRoom()
{
    using std::chrono::milliseconds;
    for (;;) {
        pollfd polled[2] = {{output, POLLOUT, 0}, {stopping ? -1 : wake, POLLIN, 0}};
        int wait = -1;
        if (stopping) {
            const auto left = giveUpAt.load() - std::chrono::steady_clock::now();
            wait = static_cast<int>(std::max<int64_t>(0, std::chrono::ceil<milliseconds>(left).count()));
        }
        const int ready = poll(polled, 2, wait);
        if (ready > 0 && polled[0].revents != 0)
            return true;
        if (ready == 0)
            outputGone = true; // told to stop, and it took nothing
        if (outputGone)
            return false;
    }
}
