[global]
version="1"

[mail_smtp]
title_key="packages/mail/texts:app:smtp"
title="Mail server (sending)"
desc_key="packages/mail/texts:app:smtp_desc"
desc="Takes mail from other servers and from mail programs"
port_forward="yes"
dst.ports="25,465,587/tcp"

[mail_imap]
title_key="packages/mail/texts:app:imap"
title="Mail server (reading)"
desc_key="packages/mail/texts:app:imap_desc"
desc="Gives mail programs the users' mail"
port_forward="yes"
dst.ports="143,993/tcp"
