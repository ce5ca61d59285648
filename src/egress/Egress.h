/* What valend and the filter in the kernel share. */
#pragma once

#include "Speaker.h"

/* The mark of the packets that valend sends itself (SO_MARK): the filter passes them. */
#define EGRESS_OWN_MARK 0x76616c65u

/* Speakers that can be muted at the same time. */
#define EGRESS_MUTES 65536

struct egress_mute {
   __u64 until;   /* CLOCK_MONOTONIC in ns; then the filter opens, whatever became of valend */
   __u64 dropped; /* frames */
};
