/*
 * libtavopf: port forwarding by the router.
 *
 * The part of the appliance's port-forwarding library that libtavoserviceconf calls.
 */
#ifndef TAVOPF_H
#define TAVOPF_H

#if defined(__GNUC__)
#define TAVOPF_API __attribute__((visibility("default")))
#else
#define TAVOPF_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The path of the file of forwarding rules, a constant: /usr/tavo/etc/portforward/rule.conf. Never
 * NULL; the file need not exist. */
TAVOPF_API const char *TAVOPFRuleConfPathGet(void);

#ifdef __cplusplus
}
#endif

#endif /* TAVOPF_H */
