[ldap]
title="Directory server"
desc="Accounts and groups for other computers"
port_forward="no"
dst.ports="389/tcp"

[ldaps]
title="Directory server (encrypted)"
desc="Accounts and groups for other computers"
port_forward="no"
dst.ports="636/tcp"
