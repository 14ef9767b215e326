[a]
title=a
desc=a
src.ports=1024:65535
dst.ports="80, 6000:6010 ,1000:999,0,4294967376 / TCP , udp"
