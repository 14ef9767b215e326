[chat]
title="Chat server"
desc="Messages between the users of this appliance"
port_forward="yes"
dst.ports="5222,5269/tcp"
