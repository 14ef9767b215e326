[global]
version="1"
support_key="web"

# pages
[web]
title_key="web:app:title"
title="Web"
desc="Pages"
port_forward="yes"
dst.ports="80,443/tcp"
