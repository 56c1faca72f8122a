// Requests with a way back: each carries the queue on which its sender waits for the answer.
#include <cstdio>
#include <vxw_shim.h>

namespace
{
struct Request {
    int number;
    MSG_Q_ID replyTo;
};
MSG_Q_ID requests;

int squareServer(...)
{
    Request request;
    while (msgQReceive(requests, &request, sizeof request, WAIT_FOREVER) == sizeof request && request.number != 0) {
        const long square = static_cast<long>(request.number) * request.number;
        msgQSend(request.replyTo, &square, sizeof square, WAIT_FOREVER, MSG_PRI_NORMAL);
    }
    return 0;
}

void send(int number, MSG_Q_ID replyTo)
{
    const Request request = {number, replyTo};
    msgQSend(requests, &request, sizeof request, WAIT_FOREVER, MSG_PRI_NORMAL);
}
} // namespace

int main()
{
    requests = msgQCreate(8, sizeof(Request), MSG_Q_FIFO);
    static const MSG_Q_ID replies = msgQCreate(8, sizeof(long), MSG_Q_FIFO);
    taskSpawn("squares", 100, 0, 0, squareServer, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);

    for (int number = 1; number <= 3; ++number)
        send(number * 11, replies);
    for (int number = 1; number <= 3; ++number) {
        long square = 0;
        if (msgQReceive(replies, &square, sizeof square, 500) != sizeof square) // at most 5 s
            return 1;
        printf("%d squared is %ld\n", number * 11, square); // one server, so answers come in order
    }
    send(0, nullptr); // the end
}

/* Prints:
11 squared is 121
22 squared is 484
33 squared is 1089
*/
