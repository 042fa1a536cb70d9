/* Smoke test of the Windows libcurl (scripts/smoke-win-curl.sh runs it under
   Wine). Loads RKCurl.dll at run time, prints curl_version() and the
   protocols, then fetches each URL argument into memory (or "URL=>FILE" into
   FILE) with certificate verification off and prints the byte count and an
   FNV-1a checksum of the body. Exit code 0 when every transfer succeeded. */
#include <winsock2.h>
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <curl/curl.h>

typedef CURL *(*p_init)(void);
typedef CURLcode (*p_setopt)(CURL *, CURLoption, ...);
typedef CURLcode (*p_perform)(CURL *);
typedef void (*p_cleanup)(CURL *);
typedef char *(*p_version)(void);
typedef curl_version_info_data *(*p_vinfo)(CURLversion);
typedef const char *(*p_strerror)(CURLcode);
typedef CURLcode (*p_getinfo)(CURL *, CURLINFO, ...);
typedef CURLcode (*p_ginit)(long);

static unsigned long long total; static unsigned int sum = 0x811c9dc5u; static FILE *outf;
static size_t wr(char *p, size_t s, size_t n, void *u) {
  size_t k = s * n;
  for (size_t i = 0; i < k; i++) { sum ^= (unsigned char)p[i]; sum *= 16777619u; }
  total += k; if (outf) fwrite(p, 1, k, outf); return k;
}

int main(int argc, char **argv) {
  const char *dllname = getenv("SMOKE_DLL") ? getenv("SMOKE_DLL") : "RKCurl.dll";
  HMODULE h = LoadLibraryA(dllname);
  if (!h) { printf("LoadLibrary(%s) failed: %lu\n", dllname, GetLastError()); return 2; }
#define G(t, n) t n = (t)(void *)GetProcAddress(h, #n); if (!n) { printf("missing %s\n", #n); return 2; }
  G(p_ginit, curl_global_init) G(p_init, curl_easy_init) G(p_setopt, curl_easy_setopt)
  G(p_perform, curl_easy_perform) G(p_cleanup, curl_easy_cleanup) G(p_version, curl_version)
  G(p_vinfo, curl_version_info) G(p_strerror, curl_easy_strerror) G(p_getinfo, curl_easy_getinfo)
  { CURLcode g = curl_global_init(CURL_GLOBAL_ALL); if (g) printf("curl_global_init: %d\n", (int)g); }
  printf("curl_version: %s\n", curl_version());
  curl_version_info_data *vi = curl_version_info(CURLVERSION_NOW);
  printf("protocols:");
  for (const char *const *p = vi->protocols; *p; p++) printf(" %s", *p);
  printf("\nssl: %s  libssh: %s\n", vi->ssl_version ? vi->ssl_version : "-", vi->libssh_version ? vi->libssh_version : "-");
  int rc = 0;
  for (int a = 1; a < argc; a++) {
    const char *url = argv[a];
    const char *outname = NULL;
    char *eq = strstr(argv[a], "=>");  /* URL=>outfile */
    char ubuf[2048];
    if (eq) { memcpy(ubuf, url, eq - url); ubuf[eq - url] = 0; url = ubuf; outname = eq + 2; }
    CURL *c = curl_easy_init();
    total = 0; sum = 0x811c9dc5u; outf = outname ? fopen(outname, "wb") : NULL;
    curl_easy_setopt(c, CURLOPT_URL, url);
    curl_easy_setopt(c, CURLOPT_WRITEFUNCTION, wr);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(c, CURLOPT_TIMEOUT, (long)(getenv("SMOKE_TIMEOUT") ? atoi(getenv("SMOKE_TIMEOUT")) : 30));
    if (getenv("SMOKE_USER")) curl_easy_setopt(c, CURLOPT_USERPWD, getenv("SMOKE_USER"));
    if (getenv("SMOKE_KEY")) {
      curl_easy_setopt(c, CURLOPT_SSH_PRIVATE_KEYFILE, getenv("SMOKE_KEY"));
      if (getenv("SMOKE_PUBKEY")) curl_easy_setopt(c, CURLOPT_SSH_PUBLIC_KEYFILE, getenv("SMOKE_PUBKEY"));
      curl_easy_setopt(c, CURLOPT_SSH_AUTH_TYPES, (long)CURLSSH_AUTH_PUBLICKEY);
    }
    if (getenv("SMOKE_VERBOSE")) curl_easy_setopt(c, CURLOPT_VERBOSE, 1L);
    CURLcode r = curl_easy_perform(c);
    long code = 0; curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &code);
    if (outf) fclose(outf);
    printf("%s -> %d (%s) response %ld, %llu bytes, fnv1a %08x\n", url, (int)r, curl_easy_strerror(r), code, total, sum);
    if (r != CURLE_OK) rc = 1;
    curl_easy_cleanup(c);
  }
  return rc;
}
