[a]
title=a
desc=a
dst.ports=80,,65536,1:2:3,:1,-1/tcp,sctp,
