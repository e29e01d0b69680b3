/* What a host has: its interfaces, its system, the certificates that it serves with. */
#ifndef INVENTORY_H
#define INVENTORY_H

#include <stdint.h>

typedef struct {
    char name[16];
    char mac[32];  /* of Ethernet cards */
    char ipv4[64]; /* empty if there is none */
    char ipv6[64];
} INTERFACE;

typedef struct {
    char* file;
    char* subject; /* the common name, in UTF-8 */
    char* until;
} CERTIFICATE;

typedef struct {
    char host[256];
    char* system; /* what uname says */
    int64_t uptime;
    int echo; /* milliseconds that an echo over the loopback interface takes; -1 if there is none */
    INTERFACE* interfaces;
    int interface_count;
    CERTIFICATE* certificates;
    int certificate_count;
} INVENTORY;

/* Looks at the host. `certificates` are files with blanks between them, `work` a file to use meanwhile. The result is to be
   released with FreeInventory(), also after a failure. */
int TakeInventory(void* log, const char* certificates, const char* work, INVENTORY* inventory);
void FreeInventory(INVENTORY* inventory);

/* Records what is different from what was saved in a file, and saves it there, as bytes for machines. */
int CompareAndSave(void* log, const INVENTORY* inventory, const char* file);

/* Sends it as JSON, compressed, in a packet to "host:port", which must answer with the number of interfaces. */
int Report(void* log, const INVENTORY* inventory, const char* reporter);

#endif
