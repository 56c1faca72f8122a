// A pool of equal blocks: allocation without the heap, a wait for a block, and pointers that are refused.
#include <cstdio>
#include <mempool.h>
#include <thread>

namespace
{
struct Packet {
    char bytes[60];
    int length;
};
} // namespace

int main()
{
    constexpr unsigned blocks = 3;
    vxFixedSizeMemPool pool(sizeof(Packet), blocks);
    if (pool.getFlagError() != 0)
        return 1;

    void *packets[blocks];
    for (void *&packet : packets)
        packet = pool.vxAlloc(NO_WAIT);
    printf("free: %u, and a fourth is %s\n", pool.getNodeCount(),
           pool.vxAlloc(NO_WAIT) == nullptr ? "not there" : "there");

    std::thread releaser([&] { pool.vxFree(packets[1]); });
    void *waited = pool.vxAlloc(500); // waits until one is free, at most 5 s
    releaser.join();
    printf("the block that came free is the one that was waited for: %s\n", waited == packets[1] ? "yes" : "no");

    constexpr uint32_t refused = 0xFFFFFFFF;
    int foreign = 0;
    printf("a foreign pointer is %s\n", pool.vxFree(&foreign) == refused ? "refused" : "taken");
    printf("the middle of a block is %s\n",
           pool.vxFree(static_cast<char *>(waited) + 1) == refused ? "refused" : "taken");
    for (void *packet : packets)
        pool.vxFree(packet);
    printf("a second free is %s\n", pool.vxFree(packets[0]) == refused ? "refused" : "taken");
    printf("free: %u of %u\n", pool.getNodeCount(), blocks);
}

/* Prints:
free: 0, and a fourth is not there
the block that came free is the one that was waited for: yes
a foreign pointer is refused
the middle of a block is refused
a second free is refused
free: 3 of 3
*/
