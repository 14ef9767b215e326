/*
 * Uses the library as a plain C program of the appliance does: each family of functions once. The
 * exit status is the number of the first line with an unexpected result.
 */
#include <stdlib.h>
#include <string.h>
#include <tavocore.h>
#include <tavoserviceconf.h>

#define EXPECT(condition)    \
    do {                     \
        if (!(condition))    \
            return __LINE__; \
    } while (0)

static int protocols(void) {
    char szName[4];
    char szWords[] = " UDP , tcp ";
    int nProto = 0;
    EXPECT(IsTCP(TAVO_PROTO_TCP) && IsUDP(TAVO_PROTO_UDP) && IsBothTCPAndUDP(3));
    EXPECT(HasTCP(3) == 1 && HasUDP(3) == 2 && IsLegalProtocol(3));
    EXPECT(TLIBServiceProtoMapSizeGet() == 2 && gProtoTypeMapping[1].nProto == TAVO_PROTO_UDP);
    EXPECT(TLIBServiceProtoIndexGet(0, &nProto) == 0 && nProto == TAVO_PROTO_TCP);
    EXPECT(TLIBServiceProtoStrGet(1, szName, sizeof(szName)) == 0 && strcmp(szName, "udp") == 0);
    EXPECT(TLIBServiceConfProtocolParse(szWords) == 3);
    EXPECT(strcmp(TAVOTCPStateToString(10), "TCP_LISTEN") == 0);
    EXPECT(ToUPort("8080") == 8080 && TAVOServiceConfPortsCheck("65535") == 1);
    return 0;
}

static int ports(void) {
    char szPorts[16];
    char szProto[8];
    TAVO_SERVICE_CONF_PORT *pPorts = NULL;
    TAVO_SERVICE_CONF_PORT *pCopy = NULL;
    EXPECT(TAVOServiceConfPortsGet("80,6000:6010/tcp", 1, &pPorts) == 0);
    EXPECT(TLIBServiceConfPortsToStr(pPorts, szPorts, sizeof(szPorts), szProto, sizeof(szProto)) ==
           0);
    EXPECT(strcmp(szPorts, "6000:6010,80") == 0 && strcmp(szProto, "tcp") == 0);
    EXPECT(TAVOServiceComposePortInfo(pPorts, &pCopy) == 0 && pCopy->nPortEnd == 6010);
    TAVOServiceConfPortsFree(pCopy);
    TAVOServiceConfPortsFree(pPorts);
    return 0;
}

static int sections(const char *szPath) {
    TAVO_SERVICE_CONF_STRING strTitle;
    TAVO_SERVICE_CONF_SECTION *pSection = NULL;
    TAVO_SERVICE_CONF_SECTION *pCopy = NULL;
    EXPECT(TAVOServiceConfServiceStringGet("table:section:key", &strTitle) == 0);
    EXPECT(strcmp(strTitle.szSource, "table") == 0 && strcmp(strTitle.szKey, "key") == 0);
    EXPECT(TAVOServiceConfSectionGet(szPath, "plain-c", &pSection) == 0);
    EXPECT(strcmp(pSection->strTitle.szText, "Plain C") == 0 &&
           pSection->pDstPorts->nPortStart == 80);
    EXPECT(TAVOServiceComposeSectionInfo(pSection, &pCopy) == 0);
    EXPECT(pCopy != pSection && strcmp(pCopy->szName, "plain-c") == 0);
    TAVOServiceConfSectionFree(pCopy);
    TAVOServiceConfSectionFree(pSection);
    return 0;
}

static int files(const char *szPath) {
    TAVO_SERVICE_CONF *pFiles = NULL;
    int nFiles =
        TAVOServiceConfEnum(&pFiles, TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE);
    EXPECT(nFiles > 1);
    EXPECT(TAVOServiceConfGet(szPath, &pFiles) == 0 && pFiles->nVersion == 0);
    TAVOServiceConfFree(pFiles);
    EXPECT(TAVOServiceConfFileVerify(szPath, "/usr/local/etc/services.d") == 0);
    return 0;
}

static int ranges(void) {
    char *szText = NULL;
    TAVO_SERVICE_CONF_PORT port = {TAVO_PORT_DIRECTION_DST, TAVO_PORT_TYPE_RANGE, 0, 81, 90, NULL};
    TAVO_PORT_RANGE *pSet = TLIBPortRangeCreate();
    EXPECT(TLIBPortRangeImport(pSet, "80,100:110") == 0 && TLIBPortRangeAdd(pSet, &port) == 0);
    EXPECT(pSet->nCount == 2 && pSet->pRanges->nPortEnd == 90);
    EXPECT((szText = TLIBPortRangeExport(pSet)) && strcmp(szText, "80:90,100:110") == 0);
    TLIBCStrPut(szText);
    TLIBPortRangeDestory(pSet);
    return 0;
}

static int firewall_services(void) {
    TAVO_FW_SERVICE *pServices = NULL;
    TLIBCSzList *pNames = TLIBCSzListAlloc(0);
    EXPECT(strcmp(rgServices[0].szName, "telnet") == 0 && rgServices[12].szName == NULL);
    EXPECT(TAVOFwServiceEnum(&pServices) > 12 && TAVOFWServiceFind(pServices, "ntp") != NULL);
    EXPECT(TLIBCSzListFind(TAVOFWServiceFind(pServices, "ssh")->pDstPortList, "22") == 0);
    EXPECT(TAVOFwSectionNameEnum("directory", &pNames) == 2);
    TLIBCSzListFree(pNames);
    TAVOFwServiceFree(pServices);
    return 0;
}

static int conflicts(const char *szPath) {
    TAVO_SERVICE_CONF_PORT *pTaken = NULL;
    EXPECT(TLIBIsPortConflict("", "23", "tcp", TAVO_PORT_CHECK_FW_SERVICE, &pTaken) == 1);
    EXPECT(pTaken != NULL && pTaken->nPortStart == 23);
    TAVOServiceConfPortsFree(pTaken);
    pTaken = NULL;
    EXPECT(TLIBIsPortConflict("", "61000", "tcp,udp", 31, &pTaken) == 0 && pTaken == NULL);
    EXPECT(TLIBIsConfPortConflict(szPath, &pTaken) == 1); /* web_http has its port */
    EXPECT(pTaken != NULL && pTaken->nPortStart == 80);
    TAVOServiceConfPortsFree(pTaken);
    return 0;
}

static int declared_ports(void) {
    TLIBCSzList *pPorts = TLIBCSzListAlloc(1);
    TLIBCDList *pResults = NULL;
    const TAVO_CONF_PORT_CONFLICT_RESULT *pResult = NULL;
    EXPECT(TLIBCSzListPush(&pPorts, "5005") == 1);
    EXPECT((pResults = TAVOConfPortConflictResultListAllocAndCheck(pPorts, TAVO_PROTO_TCP)));
    pResult = TLIBCDListElement(TLIBCDListFirst(pResults));
    EXPECT(pResult->blConflict == 1 && strcmp(pResult->szService, "tavo-webdav") == 0);
    EXPECT(TAVOConfVerifyConflictPort(pResults, 5005, TAVO_PROTO_BOTH) == 1);
    EXPECT(TAVOConfIsConflictPorts(pPorts, TAVO_PROTO_TCP) == 1);
    TAVOConfPortConflictResultListFree(pResults);
    TLIBCSzListFree(pPorts);
    return 0;
}

static int held_ports(void) {
    TLIBCDList *pResults = TAVORuntimePortConflictResultListAlloc();
    TLIBCSzList *pPorts = TLIBCSzListAlloc(1);
    EXPECT(TLIBCSzListPush(&pPorts, "61000") == 1);
    EXPECT(TAVORuntimePortConflictCheck(pPorts, TAVO_PROTO_BOTH, pResults) == 0);
    EXPECT(TLIBCDListCount(pResults) == 2); /* nobody holds it, over TCP nor over UDP */
    EXPECT(TAVORuntimeVerifyConflictPort(pResults, 61000, TAVO_PROTO_BOTH) == 0);
    EXPECT(TAVORuntimeIsConflictPortRange(61000, 61010, TAVO_PROTO_TCP) == 0);
    TLIBCSzListFree(pPorts);
    TAVORuntimePortConflictResultListFree(pResults);
    return 0;
}

/* Each call is rejected before it has any effect. */
static int changes(const char *szPath) {
    const TAVO_SERVICE_CONF_PORT port = {
        TAVO_PORT_DIRECTION_DST, 0, TAVO_PROTO_TCP, 61000, 0, NULL};
    TAVO_SERVICE_CONF_SET_PARAM param;
    TAVO_SERVICE_CONF_SECTION *pSection = NULL;
    memset(&param, 0, sizeof(param));
    param.nRestartMode = TAVO_RESTART_MODE_NONE;
    param.nRestartFlags = TAVO_RESTART_FIREWALL | TAVO_RESTART_RELAY;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE;
    param.nLocation = TAVO_SERVICE_CONF_DIR_PACKAGE;
    strcpy(param.szFileName, "../plain-c.sc");
    strcpy(param.szSectionName, "plain-c");
    EXPECT(TAVOServiceConfSectionGet(szPath, "plain-c", &pSection) == 0);
    EXPECT(TLIBServiceConfSectionSet(&param, pSection) == -1 && TLIBCErrGet() == 0xD00);
    TAVOServiceConfSectionFree(pSection);
    EXPECT(TLIBServiceConfPortsSet(&param, &port) == -1);
    EXPECT(TAVOServiceConfSectionPortSet(2, param.szFileName, "plain-c", &port) == -1);
    param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    EXPECT(TLIBServiceConfSectionRemove(&param) == -1 && TAVOServiceConfRemove(&param) == -1);
    EXPECT(TLIBServiceConfRemove(NULL) == -1 && TAVOServiceConfRemoveBaseName("", 2) == -1);
    EXPECT(TLIBServiceConfRemoveBaseName(NULL, TAVO_SERVICE_CONF_DIR_PACKAGE) == -1);
    param.nWriteMode = TAVO_WRITE_MODE_NONE;
    EXPECT(TLIBServiceConfSectionRemove(&param) == -1);
    return 0;
}

static int installations(const char *szPath) {
    const int nBoth = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;
    TAVO_SERVICE_CONF_PORT *pTaken = NULL;
    TAVO_SERVICE_CONF_NOTIFY notify = {"old", "new", 1, 1};
    char szInstalled[32];
    EXPECT(TAVOServiceConfInstall(szPath, nBoth) == -1 && TLIBCErrGet() == 0xD00);
    EXPECT(TAVOServiceConfInstallBaseName("../plain-c.sc", szPath, 2, &pTaken) == -1);
    EXPECT(TAVOServiceConfUpdateBaseName("plain-c.sc", szPath, nBoth, &pTaken) == -1);
    EXPECT(TAVOServiceConfUpdateBaseNameWithoutNotify("plain-c.sc", szPath, nBoth, &pTaken,
                                                      &notify) == -1);
    EXPECT(pTaken == NULL && notify.blNotifyFw == 1 && strcmp(notify.szOldConfPath, "old") == 0);
    EXPECT(ServiceConfInstall(NULL, szPath, 2, &pTaken) == -1);
    EXPECT(GetInstallPath("a.sc", 2, szInstalled, sizeof(szInstalled)) == 0);
    EXPECT(strcmp(szInstalled, "/usr/local/etc/services.d/a.sc") == 0);
    return 0;
}

static int side_copies(void) {
    TAVO_SERVICE_CONF_SET_PARAM param;
    memset(&param, 0, sizeof(param)); /* of no store */
    EXPECT(TLIBServiceConfBackup(&param) == -1 && TLIBCErrGet() == 0xD00);
    EXPECT(TLIBServiceConfRestore(&param) == -1 && TLIBServiceBackupConfDelete(&param) == -1);
    EXPECT(RemovePath("") == -1 && CopyOrMovePath("", "/tmp/plain-c", 1) == -1);
    return 0;
}

static int notifications(void) {
    const TAVO_SERVICE_CONF_REMOVE_NOTIFY removed = {NULL, 0, 0};
    EXPECT(removed.pszConfPath == NULL && TLIBServiceConfRemoveServNotify(NULL) == -1);
    EXPECT(TLIBServiceConfUpdateServNotify(NULL) == -1 && TLIBServiceConfServNotify(NULL) == -1);
    EXPECT(TLIBServiceConfServRestart(0) == -1 && TLIBFwServRemoveRecWrap(NULL) == -1);
    EXPECT(PluginArgSetFileContent(NULL, "KEY", NULL) == -1);
    EXPECT(TAVOFwRuleHupWrap() == 0); /* however often the firewall is reloaded */
    return 0;
}

static int failures(void) {
    TAVO_SERVICE_CONF *pFiles = NULL;
    EXPECT(TAVOServiceConfGet("/nowhere", &pFiles) == -1 && pFiles == NULL);
    EXPECT(TLIBCErrGet() == 0x700 && TLIBCErrorGetFile()[0] != '\0' && TLIBCErrorGetLine() > 0);
    return 0;
}

int main(int argc, char **argv) {
    int nLine = 0;
    EXPECT(argc == 2);
    nLine = nLine ? nLine : protocols();
    nLine = nLine ? nLine : ports();
    nLine = nLine ? nLine : sections(argv[1]);
    nLine = nLine ? nLine : files(argv[1]);
    nLine = nLine ? nLine : ranges();
    nLine = nLine ? nLine : firewall_services();
    nLine = nLine ? nLine : conflicts(argv[1]);
    nLine = nLine ? nLine : declared_ports();
    nLine = nLine ? nLine : held_ports();
    nLine = nLine ? nLine : changes(argv[1]);
    nLine = nLine ? nLine : installations(argv[1]);
    nLine = nLine ? nLine : side_copies();
    nLine = nLine ? nLine : notifications();
    return nLine ? nLine : failures();
}
