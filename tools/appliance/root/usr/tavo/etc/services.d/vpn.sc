[global]
version="1"

[vpn_openvpn]
title_key="network:vpn:tunnel_title"
title="VPN tunnel"
desc_key="network:vpn:tunnel_desc"
desc="Reaches this network from outside"
port_forward="yes"
dst.ports="1194/udp"

[vpn_l2tp]
title_key="network:vpn:l2tp_title"
title="VPN over L2TP and IPsec"
desc_key="network:vpn:l2tp_desc"
desc="Reaches this network from outside"
port_forward="yes"
dst.ports="500,1701,4500/udp"
