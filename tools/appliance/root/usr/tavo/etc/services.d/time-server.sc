[ntp]
title="Time server"
desc="The time for other computers"
src.ports="123/udp"
dst.ports="123/udp"
