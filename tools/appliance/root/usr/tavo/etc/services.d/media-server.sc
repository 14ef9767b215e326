[global]
version="2"

[media_stream]
title_key="media:server:title"
title="Media server"
desc_key="media:server:desc"
desc="Music, photos and videos for players in this network"
port_forward="yes"
dst.ports="8200/tcp"

[media_discovery]
title_key="media:discovery:title"
title="Media server discovery"
desc_key="media:discovery:desc"
desc="Lets players find the media server"
desc_extra="(local network only)"
port_forward="no"
dst.ports="1900/udp"

[media_cast]
title_key="media:cast:title"
title="Media casting"
desc="Sends what plays to a screen"
port_forward="no"
dst.ports="41000:41010,41100/tcp,udp"
