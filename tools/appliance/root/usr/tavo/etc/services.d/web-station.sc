[global]
version="1"

[web_http]
title_key="web_station:http_title"
title="Web station"
desc_key="web_station:http_desc"
desc="Web pages of the users of this appliance"
port_forward="yes"
dst.ports="80/tcp"

[web_https]
title_key="web_station:https_title"
title="Web station (encrypted)"
desc_key="web_station:https_desc"
desc="Web pages of the users of this appliance"
port_forward="yes"
dst.ports="443/tcp"
