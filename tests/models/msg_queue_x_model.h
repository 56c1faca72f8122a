// msg_queue_x_model.h: what a variable-length queue has to hold: a deque of messages, and the gives that go with it.
//
// A program makes one call at a time on queue and model, without the timer task and without calls that would wait.
// Choices come from a Chooser (below() and word()), so tests feed them from a seed and fuzzers from their input.
#pragma once

#include "queues.h"

#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <algorithm>
#include <deque>
#include <string>

class MsgQueueXModel
{
public:
    std::deque<std::string> messages;
    size_t capacity = 0;
    size_t maxLength = 0;
    int gives = 0;         // of the queue's semaphore
    int externalGives = 0; // of the external flag
    int turns = 1;         // of the senders
    int heldBack = 0;
    int rxThreshold = 0;
    size_t txThreshold = 0;
    bool blocking = false;
    bool delays = false;
    bool hasExternal = false;

    // `waits`: with a time-out; a caller that would find no turn does not call.
    int send(const std::string &message, bool waits, int flags)
    {
        if (sendQ(message, waits, (flags & 1) != 0) != 0)
            return -1;
        if (delays && flags < 2 && rxThreshold > static_cast<int>(messages.size())) {
            ++heldBack;
        } else {
            flush();
            giveBatch(1);
        }
        return 0;
    }

    int sendQ(const std::string &message, bool waits, bool front)
    {
        if (message.size() > maxLength)
            return -1;
        if (waits)
            --turns;
        else if (blocking)
            return -1;
        if (messages.size() == capacity) {
            blocking = true;
            return -1;
        }
        messages.insert(front ? messages.begin() : messages.end(), message);
        if (messages.size() == capacity)
            blocking = true;
        else if (!blocking)
            ++turns;
        return 0;
    }

    int recv(std::string &message, size_t maxLen)
    {
        if (gives == 0)
            flush();
        if (gives == 0)
            return -1;
        --gives;
        return recvQ(message, maxLen);
    }

    int recvQ(std::string &message, size_t maxLen)
    {
        int result = -1;
        if (!messages.empty()) {
            message = messages.front().substr(0, maxLen);
            result = static_cast<int>(message.size());
            messages.pop_front();
            if (!messages.empty() && hasExternal)
                ++externalGives;
        }
        if (txThreshold >= messages.size()) {
            blocking = false;
            ++turns;
        }
        return result;
    }

private:
    void flush()
    {
        if (heldBack != 0)
            giveBatch(heldBack);
        heldBack = 0;
    }

    void giveBatch(int count)
    {
        gives += count;
        if (hasExternal)
            ++externalGives;
    }
};

class MsgQueueXProgram
{
public:
    template <class Chooser>
    explicit MsgQueueXProgram(Chooser &choose)
    {
        const auto capacity = static_cast<int>(1 + choose.below(5));
        const auto maxLength = static_cast<int>(1 + choose.below(8));
        const auto rxThreshold = static_cast<int>(choose.below(static_cast<unsigned>(capacity) + 1));
        const auto txThreshold = static_cast<int>(choose.below(7));
        const int delay = choose.below(2) == 0 ? 0 : 100000;
        if (choose.below(2) == 0)
            external_ = semCCreate(SEM_Q_FIFO, 0);
        queue_ = msgQxCreateX(capacity, maxLength, 0, rxThreshold, txThreshold, delay, external_);
        model.capacity = static_cast<size_t>(capacity);
        model.maxLength = static_cast<size_t>(maxLength);
        model.rxThreshold = rxThreshold;
        model.txThreshold = static_cast<size_t>(std::min(txThreshold, capacity));
        model.delays = delay != 0;
        model.hasExternal = external_ != nullptr;
    }

    ~MsgQueueXProgram()
    {
        msgQxDelete(queue_);
        if (external_ != nullptr)
            semDelete(external_);
    }

    MsgQueueXProgram(const MsgQueueXProgram &) = delete;
    MsgQueueXProgram &operator=(const MsgQueueXProgram &) = delete;

    // Makes one call; returns what is wrong after it, or null.
    template <class Chooser>
    const char *step(Chooser &choose)
    {
        bool same = true;
        std::string expected;
        std::string received(16, '?');
        const size_t maxLen = choose.below(10);
        switch (choose.below(6)) {
        case 0:
        case 1:
        case 2: {
            std::string message(choose.below(static_cast<unsigned>(model.maxLength) + 2), ' ');
            for (char &byte : message)
                byte = static_cast<char>(choose.below(256));
            const auto flags = static_cast<int>(choose.below(6)) - 1;
            const bool waits = model.turns > 0 && choose.below(2) == 0;
            const int timeout = waits ? (isFull() || choose.below(2) == 0 ? 1000 : WAIT_FOREVER) : 0;
            const int result = msgQxSend(queue_, message.data(), static_cast<int>(message.size()), timeout, flags);
            same = result == model.send(message, waits, flags);
            break;
        }
        case 3:
        case 4: {
            const int result = msgQxRecv(queue_, received.data(), static_cast<int>(maxLen), 0);
            same = result == model.recv(expected, maxLen) && holds(received, expected, result);
            break;
        }
        default: {
            const int result = queue_->recvQ(received.data(), static_cast<int>(maxLen));
            same = result == model.recvQ(expected, maxLen) && holds(received, expected, result);
        }
        }
        return same ? difference() : "another result";
    }

    // Names the first difference between queue and model; null when they agree.
    const char *difference()
    {
        SemLock hold(SBaseQ::lockSem);
        if (msgQxNumMsgs(queue_) != static_cast<int>(model.messages.size()))
            return "another number of messages";
        if (queue_->empty != (model.messages.empty() ? 1 : 0))
            return "empty tells otherwise";
        int slot = queue_->pRead;
        for (const std::string &message : model.messages) {
            const auto *bytes = reinterpret_cast<const char *>(queue_->msgQ) + slot * queue_->maxMsgLength;
            if (message != std::string(bytes, queue_->msgLen[slot]))
                return "another message is next";
            slot = slot + 1 == queue_->queueSize ? 0 : slot + 1;
        }
        if (slot != queue_->pWrite)
            return "the ring ends elsewhere";
        if (queue_->txBlocking != model.blocking)
            return "senders must not wait as they should";
        if (givesOf(queue_->sendFlag) != model.turns)
            return "another number of turns";
        if (givesOf(queue_->cflag) != model.gives)
            return "another number of gives";
        if (queue_->delayedGives != model.heldBack || queue_->aging != (model.heldBack != 0))
            return "another number is held back";
        if (external_ != nullptr && givesOf(external_) != model.externalGives)
            return "another number of external gives";
        return nullptr;
    }

    SMsgQueueX &queue()
    {
        return *queue_;
    }

    MsgQueueXModel model;

private:
    bool isFull() const
    {
        return model.messages.size() == model.capacity;
    }

    // The bytes received, and nothing written behind them.
    static bool holds(const std::string &buffer, const std::string &expected, int result)
    {
        const size_t bytes = result < 0 ? 0 : expected.size();
        return buffer.compare(0, bytes, expected, 0, bytes) == 0 &&
               buffer.find_first_not_of('?', bytes) == std::string::npos;
    }

    SEM_ID external_ = nullptr;
    SMsgQueueX *queue_;
};
