// fixed_msg_queue.h: a fixed-size message queue beside a model that is too simple to be wrong.
#pragma once

#include "vxw_shim.h"

#include "vxw_shim/fixed_msg_queue.h"

#include "harness/seeded_chooser.h"

#include <stdlib.h>
#include <string.h>

#include <deque>
#include <string>

inline uint32_t slotLength(const msg_q *q, int slot)
{
    uint32_t length;
    memcpy(&length, q->queue_mem + static_cast<size_t>(slot) * (static_cast<size_t>(q->max_data_len) + 4), 4);
    return length;
}

inline void setSlotLength(msg_q *q, int slot, uint32_t length)
{
    memcpy(q->queue_mem + static_cast<size_t>(slot) * (static_cast<size_t>(q->max_data_len) + 4), &length, 4);
}

// Names the first invariant that does not hold, or returns null. Nobody else may use the queue meanwhile.
inline const char *brokenInvariant(const msg_q *q)
{
    if (q->front < 0 || q->front >= q->max_size_queue)
        return "front is a slot";
    if (q->num_requests < 0 || q->num_requests > q->max_size_queue)
        return "the messages held fit into the slots";
    for (int place = 0; place < q->max_size_queue; ++place) {
        const int slot = static_cast<int>((int64_t{q->front} + place) % q->max_size_queue);
        if (place < q->num_requests && slotLength(q, slot) > static_cast<uint32_t>(q->max_data_len))
            return "a message is not longer than the longest";
        if (place >= q->num_requests && slotLength(q, slot) != 0)
            return "a free slot has length 0";
    }
    return nullptr;
}

// Ends a queue, which the library has no call for.
inline void releaseQueue(msg_q *q)
{
    pthread_cond_destroy(&q->notFull);
    pthread_cond_destroy(&q->notEmpty);
    pthread_mutex_destroy(&q->lock);
    free(q->queue_mem);
    free(q);
}

// A queue and a deque of strings that get the same calls. `difference` names the first thing they disagree about.
class FixedMsgQueueAndModel
{
public:
    FixedMsgQueueAndModel(int maxMessages, int maxMessageLength)
        : queue(msgQCreate(maxMessages, maxMessageLength, 0)), maxMessages_(static_cast<size_t>(maxMessages)),
          maxLength_(static_cast<size_t>(maxMessageLength))
    {
    }
    ~FixedMsgQueueAndModel()
    {
        releaseQueue(queue);
    }
    FixedMsgQueueAndModel(const FixedMsgQueueAndModel &) = delete;
    FixedMsgQueueAndModel &operator=(const FixedMsgQueueAndModel &) = delete;

    void send(const std::string &message, unsigned timeout)
    {
        const bool fits = message.size() <= maxLength_ && model_.size() < maxMessages_;
        const int result = msgQSend(queue, message.data(), static_cast<unsigned>(message.size()), timeout, 0);
        if (result != (fits ? 0 : 1))
            differ("the result of a send");
        if (fits)
            model_.push_back(message);
        compare();
    }

    void receive(size_t size, unsigned timeout)
    {
        std::string buffer(size + 1, '\xEE');
        const unsigned copied = msgQReceive(queue, buffer.data(), static_cast<unsigned>(size), timeout);
        std::string expected(size + 1, '\xEE');
        unsigned expectedCopied = 0xFFFFFFFF;
        if (!model_.empty()) {
            const std::string head = model_.front().substr(0, size);
            model_.pop_front();
            ++taken_;
            expectedCopied = static_cast<unsigned>(head.size());
            expected.replace(0, head.size(), head);
        }
        if (copied != expectedCopied)
            differ("the result of a receive");
        if (buffer != expected)
            differ("the bytes received");
        compare();
    }

    void compare()
    {
        if (const char *broken = brokenInvariant(queue))
            differ(broken);
        if (static_cast<size_t>(queue->num_requests) != model_.size())
            differ("the number of messages");
        if (static_cast<size_t>(queue->front) != taken_ % maxMessages_)
            differ("the front");
        for (size_t i = 0; i < model_.size(); ++i) {
            const size_t slot = (static_cast<size_t>(queue->front) + i) % maxMessages_;
            const char *const at = queue->queue_mem + slot * (maxLength_ + 4);
            if (slotLength(queue, static_cast<int>(slot)) != model_[i].size() ||
                memcmp(at + 4, model_[i].data(), model_[i].size()) != 0)
                differ("the message in a slot");
        }
    }

    MSG_Q_ID queue;
    std::string difference; // empty while they agree

private:
    void differ(const char *about)
    {
        if (difference.empty())
            difference = about;
    }

    std::deque<std::string> model_;
    size_t maxMessages_, maxLength_;
    size_t taken_ = 0;
};

// Calls on a queue of any size; the steps never wait. Choices come from a Chooser (below()), so tests feed them from a
// seed and fuzzers from their input.
class FixedMsgQueueProgram
{
public:
    template <class Chooser>
    explicit FixedMsgQueueProgram(Chooser &choose)
        : sends_(1 + choose.below(3)), receives_(1 + choose.below(3)), both_{static_cast<int>(1 + choose.below(9)),
                                                                             static_cast<int>(1 + choose.below(20))}
    {
    }

    // Makes one call; returns what is wrong after it, or an empty text.
    template <class Chooser>
    const std::string &step(Chooser &choose)
    {
        constexpr unsigned noWaits[] = {0, 214749, 0xFFFFFFFE}; // try once, and deadlines that lie in the past
        const unsigned timeout = noWaits[choose.below(3)];
        if (choose.below(sends_ + receives_) < sends_)
            both_.send(std::string(choose.below(23), static_cast<char>('a' + steps_++ % 26)), timeout);
        else
            both_.receive(choose.below(23), timeout);
        return both_.difference;
    }

private:
    unsigned sends_, receives_, steps_ = 0;
    FixedMsgQueueAndModel both_;
};

// One random program. Returns the first difference, or "".
inline std::string runRandomQueueProgram(unsigned seed)
{
    SeededChooser choose(seed);
    FixedMsgQueueProgram program(choose);
    for (int step = 0; step < 200; ++step)
        if (const std::string &difference = program.step(choose); !difference.empty())
            return difference;
    return "";
}
