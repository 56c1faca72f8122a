/* The C side of the port map: the two calls that keep it current. On a switch the platform makes them; here the program
 * adds ports to the stand-in's inventory, and lets it call them. */
#include <kel_standin.h>
#include <stdio.h>
#include <sysport.h>

static void appeared(void *user, portInstance_t instance)
{
    (void)user;
    printf("port instance 0x%08x appeared: %s\n", instance, kelSysPortUtilAddPifCB(instance) ? "bound" : "refused");
}

static void disappeared(void *user, portInstance_t instance)
{
    (void)user;
    printf("port instance 0x%08x goes: %s\n", instance, kelSysPortUtilDelPifCB(instance) ? "unbound" : "not bound");
}

int main(void)
{
    const kelStandinListener listener = {appeared, disappeared, NULL, NULL};
    kelSysPortUtilInit(); /* before the platform learns of the two calls */
    kelStandinSetListener(&listener);

    kelStandinAddPort(1, 1, "swp1", 0, "to the core");
    kelStandinAddPort(1, 2, "swp2", 0, "");
    kelStandinAddTrunk(1, "bond0", 0, "");
    kelStandinRemovePort(kelStandinPortInstance(1, 1));
    printf("once more: %s\n", kelSysPortUtilAddPifCB(kelStandinPortInstance(1, 2)) ? "bound" : "refused");
    kelStandinSetListener(NULL);
}

/* Prints:
port instance 0x00010001 appeared: bound
port instance 0x00010002 appeared: bound
port instance 0x01000001 appeared: bound
port instance 0x00010001 goes: unbound
once more: refused
*/
