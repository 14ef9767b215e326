[global]
version="1"
support_key="supportbackup"
run_key="runbackup"

[backup_receiver]
title_key="backup:receiver"
title="Backup receiver"
desc_key="backup:receiver_desc"
desc="Receives backups of other appliances"
port_forward="yes"
dst.ports="6281/tcp"

[backup_rsync]
title_key="backup:rsync"
title="Network backup"
desc="Receives backups over rsync"
port_forward="yes"
dst.ports="873/tcp"
