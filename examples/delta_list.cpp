// Retransmission timers on a delta list: advancing it touches the entries that expire, and no others.
#include <cstdio>
#include <deltalist.h>

namespace
{
class Retransmission : public CDeltaListSmartEntry
{
public:
    Retransmission(CDeltaList &onList, int packetNumber)
        : CDeltaListSmartEntry(onList.dbID), timers(onList), packet(packetNumber)
    {
    }

    // The entry is free again when this is called, so it may put itself back.
    void aged() override
    {
        printf("packet %d: ", packet);
        if (++tries == 2) {
            puts("given up");
            return;
        }
        puts("sent again");
        timers.add(this, 30);
    }

private:
    CDeltaList &timers;
    int packet;
    int tries = 0;
};
} // namespace

int main()
{
    CDeltaList timers("retransmissions");
    timers.initSem(nullptr);     // a lock of its own
    timers.init(100, 10, false); // entries added with time 0 expire in 100; tic(0) advances 10
    Retransmission first(timers, 1), second(timers, 2), third(timers, 3);
    timers.add(&first, 20);
    timers.add(&second, 50);
    timers.add(&third, 0);
    printf("due in %u, %u and %u\n", first.getEntryAgeOut(), second.getEntryAgeOut(), third.getEntryAgeOut());

    printf("acknowledged: packet 2, next due in %u\n", second.del());
    // A thread of the program calls tic(); what it counts in is the program's unit. Here it is the loop's step.
    for (int step = 1; step <= 13; ++step) {
        const unsigned next = timers.tic(0);
        if (next == 0)
            printf("nothing left after %d\n", step * 10);
    }
}

/* Prints:
due in 20, 50 and 100
acknowledged: packet 2, next due in 20
packet 1: sent again
packet 1: given up
packet 3: sent again
packet 3: given up
nothing left after 130
*/
