/* What valend and the filter in the kernel share. */
#pragma once

#include "egress/Speaker.h"

/* The mark of the packets that valend sends itself (SO_MARK): the filter passes them. */
#define EGRESS_OWN_MARK 0x76616c65u

/* Speakers that can be muted at the same time. */
#define EGRESS_MUTES 65536

struct egress_mute {
   __u64 until;   /* CLOCK_MONOTONIC in ns; then the filter opens, whatever became of valend */
   __u64 dropped; /* frames */
};

/* Devices whose control frames are copied. */
#define EGRESS_DEVICES 16384

struct egress_device {
   __u32 filter; /* as in egress_speaker */
   __u32 ifindex;
};

/* So many frames of one protocol are copied from one device in a second. For each protocol alone, since any
 * user may send some of them: a flood of mDNS must not hide the hello of a router. */
#define EGRESS_COPIES_A_SECOND 1000

struct egress_second {
   __u64 begin; /* CLOCK_MONOTONIC in ns */
   __u64 copies;
};

struct egress_limits {
   struct egress_second seconds[ EGRESS_KINDS ];
};

/* Of all devices together. A ring takes some 4,000 frames of 200 bytes. */
#define EGRESS_RING ( 1u << 20 )

/* The longest frame that is copied. */
#define EGRESS_LONGEST 2048

/* What the ring has of a frame; it ends with the frame's last byte. */
struct egress_copy {
   struct egress_speaker speaker;
   __u16 tag_type; /* of a VLAN tag beside the bytes, in network order; 0 without one */
   __u16 tag;
   __u32 muted; /* 1 if the frame was dropped, else 0 */
   __u8 bytes[ EGRESS_LONGEST ];
};

/* Frames that should have been copied. */
struct egress_lost {
   __u64 full; /* the ring had no room */
   __u64 too_long;
   __u64 limited; /* there were more than EGRESS_COPIES_A_SECOND */
};
