// Back-pressure: a full queue stops its senders until it has drained to half, instead of letting them in one by one.
#include <cstdio>
#include <queues.h>
#include <string>
#include <thread>

int main()
{
    kel_utils_init();
    constexpr int room = 8, half = 4, longest = 32;
    // Not held back (threshold and delay are 0): the receiver wakes with each message.
    SMsgQueueX queue(room, longest, 0, 0, half, 0, nullptr);

    std::thread sender([&queue] {
        for (int number = 1; number <= 100; ++number) {
            const std::string text = "message " + std::to_string(number);
            queue.send(text.data(), static_cast<int>(text.size()), WAIT_FOREVER, 0); // only -1 waits for room
        }
    });
    char text[longest + 1];
    int received = 0, bytes = 0;
    std::string last;
    while (received < 100 && (bytes = queue.recv(text, longest, WAIT_FOREVER)) >= 0) {
        last.assign(text, static_cast<size_t>(bytes));
        ++received;
    }
    sender.join();
    printf("%d messages, the last is \"%s\"\n", received, last.c_str());

    for (int number = 0; number < room; ++number)
        queue.send("full", 4, NO_WAIT, 0);
    printf("one more than it holds: %d\n", queue.send("full", 4, NO_WAIT, 0));
}

/* Prints:
100 messages, the last is "message 100"
one more than it holds: -1
*/
