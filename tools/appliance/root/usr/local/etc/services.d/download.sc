[global]
version="1"

[download_peers]
title="Download manager"
desc="Exchanges files with other downloaders"
port_forward="yes"
dst.ports="16881:16890/tcp,udp"

[download_discovery]
title="Download manager (local peers)"
desc="Finds other downloaders in this network"
desc_extra="Multicast"
port_forward="no"
dst.ports="6771/udp"
