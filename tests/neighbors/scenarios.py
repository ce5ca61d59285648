"""All scenarios, by name."""
import authenticated
import avahi
import bird
import frr
import groups
import keepalived
import killed
import lacp
import lldp
import traffic

SCENARIOS = {
    "lldp": lldp.Lldp,
    "ra": bird.RouterAdvertisement,
    "vrrp2-password": keepalived.Vrrp2Password,
    "vrrp3": keepalived.Vrrp,
    "vrrp3-ipv6": keepalived.Vrrp3Ipv6,
    "ospf": bird.Ospf,
    "ospfv3": bird.OspfV3,
    "bfd": bird.Bfd,
    "rip": bird.Rip,
    "ripng": bird.RipNg,
    "pim": frr.Pim,
    "ospf-frr": frr.Ospf,
    "ospfv3-frr": frr.Ospf6,
    "rip-frr": frr.Rip,
    "eigrp": frr.Eigrp,
    "isis": frr.Isis,
    "bfd-frr": frr.Bfd,
    "mdns": avahi.Mdns,
    "igmp": groups.Igmp,
    "mld": groups.Mld,
    "lacp": lacp.Lacp,
    "ospf-md5": authenticated.OspfMd5,
    "rip-md5": authenticated.RipMd5,
    "bfd-sha1": authenticated.BfdSha1,
    "vrrp2-header": authenticated.VrrpHeader,
    "isis-md5": authenticated.IsisMd5,
    "traffic": traffic.Traffic,
    "killed": killed.Killed,
    "killed-restarted": killed.Restarted,
    "killed-clsact": killed.KilledManyDevices,
    "killed-clsact-restarted": killed.RestartedManyDevices,
}

# What ./test runs.
SHORT = ["lldp", "vrrp3", "ospf", "killed-clsact", "killed-clsact-restarted"]
