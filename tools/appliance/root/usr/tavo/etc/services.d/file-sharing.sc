[global]
version="1"

[smb]
title_key="file_sharing:smb"
title="Windows file server"
desc="Shared folders for Windows and macOS"
port_forward="no"
dst.ports="139,445/tcp"

[smb_discovery]
title_key="file_sharing:discovery"
title="Windows network discovery"
desc="Shows this appliance in the network folder"
port_forward="no"
dst.ports="137,138,3702/udp"
