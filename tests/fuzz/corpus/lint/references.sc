[a]
title=a
desc=b
dst.ports=1
title_key=a:b:c:d
desc_key=::
