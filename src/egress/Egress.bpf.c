/* The filter at the egress of a device: drops the frames of muted speakers, and copies nothing else.
 *
 * At tc egress, by tcx or in a clsact. Each namespace has its own copy of the program, since the index of a
 * device is not unique beyond; the map is common to all.
 */
#include "Egress.h"

#include <linux/bpf.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

char const LICENSE[] SEC( "license" ) = "Dual BSD/GPL";

/* Set before the program is loaded. */
__u32 const volatile filter_number = 0;

struct {
   __uint( type, BPF_MAP_TYPE_HASH );
   __uint( max_entries, EGRESS_MUTES );
   __uint( map_flags, BPF_F_NO_PREALLOC );
   __type( key, struct egress_speaker );
   __type( value, struct egress_mute );
} mutes SEC( ".maps" );

struct {
   __uint( type, BPF_MAP_TYPE_PERCPU_ARRAY );
   __uint( max_entries, 1 );
   __type( key, __u32 );
   __type( value, struct egress_head );
} heads SEC( ".maps" );

/* Whether an IP protocol, or the destination port of UDP, may belong to a speaker. Data must be passed on after
 * a few instructions. */
static __always_inline int control_port( __be16 port ) {
   switch ( bpf_ntohs( port ) ) {
   case 520:
   case 521:
   case 1985:
   case 2029:
   case 3784:
   case 4784:
   case 5353:
      return 1;
   default:
      return 0;
   }
}

static __always_inline int control_protocol( __u8 protocol, void * transport, void * end ) {
   switch ( protocol ) {
   case 6:
      return 0;
   case 17:
      return transport + 4 > end || control_port( *(__be16 *)( transport + 2 ) );
   case 0:
   case 2:
   case 58:
   case 88:
   case 89:
   case 103:
   case 112:
      return 1;
   default:
      return 0;
   }
}

/* Whether to look at the frame more closely. A frame whose headers are not in the linear part is. */
static __always_inline int may_be_control( struct __sk_buff * skb ) {
   void * const data = (void *)(long)skb->data;
   void * const end = (void *)(long)skb->data_end;
   if ( data + 14 + 40 > end ) {
      return 1;
   }
   switch ( *(__be16 *)( data + 12 ) ) {
   case bpf_htons( 0x0800 ):
      /* With options, the ports are further on. */
      return *(__u8 *)( data + 14 ) != 0x45 ? *(__u8 *)( data + 23 ) != 6
                                            : control_protocol( *(__u8 *)( data + 23 ), data + 34, end );
   case bpf_htons( 0x86dd ):
      return control_protocol( *(__u8 *)( data + 20 ), data + 54, end );
   case bpf_htons( 0x0806 ):
      return 0;
   default:
      return 1;
   }
}

static __always_inline int read_head( struct __sk_buff * skb, struct egress_head * head ) {
   __u32 length = skb->len;
   if ( length < 14 ) {
      return 0;
   }
   if ( length > EGRESS_HEAD ) {
      length = EGRESS_HEAD;
   }
   __builtin_memset( head->bytes, 0, EGRESS_HEAD );
   return bpf_skb_load_bytes( skb, 0, head->bytes, length ) == 0;
}

SEC( "tc" )
int valen_egress( struct __sk_buff * skb ) {
   __u32 const only = 0;
   struct egress_speaker speaker = { .filter = filter_number, .ifindex = skb->ifindex };
   struct egress_head * head;
   struct egress_mute * mute;

   /* What the machine only forwards is not its own. */
   if ( skb->mark == EGRESS_OWN_MARK || skb->ingress_ifindex != 0 || !may_be_control( skb ) ) {
      return TC_ACT_UNSPEC;
   }
   head = bpf_map_lookup_elem( &heads, &only );
   if ( !head || !read_head( skb, head ) ||
        !egress_classify( head, skb->vlan_present ? skb->vlan_tci & 0xfff : 0, &speaker ) ) {
      return TC_ACT_UNSPEC;
   }
   mute = bpf_map_lookup_elem( &mutes, &speaker );
   if ( !mute || bpf_ktime_get_ns() >= mute->until ) {
      return TC_ACT_UNSPEC;
   }
   __sync_fetch_and_add( &mute->dropped, 1 );
   /* To a device that cannot exist: the kernel drops the frame and reports success to the sender. tcx has no
    * other verdict that does; of a dropped frame daemons would get ENOBUFS, and react to it. */
   return bpf_redirect( 0, 0 );
}
