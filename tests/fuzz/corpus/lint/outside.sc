title=a
=b
[a
version=1.0
[Global]
version=2
[global]
