[a b]
x
[]
[a]
title=a
[A]
[ a ]
[a]
desc=b
dst.ports=1
