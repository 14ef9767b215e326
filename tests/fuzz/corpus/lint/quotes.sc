[a]
title="
desc='b'
dst.ports="1/udp"
port_forward=" YES "
desc_extra=x # y
