/*
 * libtavossh: the SSH server of the appliance.
 *
 * The part of the appliance's SSH library that libtavoserviceconf calls.
 */
#ifndef TAVOSSH_H
#define TAVOSSH_H

#if defined(__GNUC__)
#define TAVOSSH_API __attribute__((visibility("default")))
#else
#define TAVOSSH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The port that the SSH server listens on: the first Port of /etc/ssh/sshd_config before its first
 * Match (sshd_config(5)), 22 if there is none or no such file. Include and the port of
 * ListenAddress are ignored. -1 if the file is not a regular file or cannot be read (0x900), or if
 * the value of Port is not one number of 1..65535 or the line is longer than 1024 bytes (0xD00). */
TAVOSSH_API int TAVOServiceSSHPortGet(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVOSSH_H */
