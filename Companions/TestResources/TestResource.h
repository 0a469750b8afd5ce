// String identifiers shared by the test resource libraries' export table and
// their string tables.
#define TST_ID_LANGUAGE_NAME 1
#define TST_ID_GREETING 2
#define TST_ID_BOTH 3
#define TST_ID_STATIC_ONLY 4
