/*
 * kudcdef.h - the records of the query data cache: what its families share
 *
 * A cache (kudcaccdef) keeps rows in a scratch data file and index blocks in a
 * scratch index file. Rows belong to threads, a thread has indexes, an index
 * has key levels. Level numbers are 0-based within their index everywhere;
 * kudcidxdef's lvst has one use: the link slot of a level is lvst + level.
 * Positions are byte offsets, signed 32-bit; -1 is none, 0 is a position.
 * Records named as the file layouts (headers, entries, links) lie in the files
 * byte for byte. Clients fill column definitions and creation descriptors and
 * read cursors; the rest is visible and the cache's own.
 * Error facilities: kuvaa (shared with virtual memory), kudca.
 */
#ifndef KUDCDEF_H
#define KUDCDEF_H

#include "kux.h"

/* ---- index types ---- */

#define KUDC_RANDOM 0u /* a B-tree a level */
#define KUDC_SEQNTL 1u /* a chain of blocks a level, in the order of arrival */
#define KUDC_DYNBRK 3u /* nothing stored: breaks are found by comparing rows */

/* ---- native datatypes that the cache tells apart ---- */

#define KUDC_CHARACTER 1u  /* text; one byte more for a terminator */
#define KUDC_NUMBER 2u     /* exact number, at most 21 bytes that sort as their values */
#define KUDC_INTEGER 3u    /* 4-byte signed integer in the machine's order */
#define KUDC_TERMINATED 5u /* text */
#define KUDC_LONG 8u       /* long text; one byte more for a terminator */
#define KUDC_ROWID 11u     /* row identifier */
#define KUDC_DATE 12u      /* date, 5 bytes that sort as their values */
#define KUDC_RAW 23u       /* bytes; ordered by length only */

#define KUDC_ASCENDING 19u /* sort direction; any other code, 0 included, is descending */
#define KUDC_NULL (-1)     /* null indicator of a NULL value; any other value: present */
#define KUDC_NONE (-1)     /* no position, no block, no link */

/* ---- relational operators of searches ---- */

#define KUDC_FIRST 0   /* the first key at the target level and below, under the keys above */
#define KUDC_NEXT 1    /* the next key at the target level, and the first keys below it */
#define KUDC_CURRENT 2 /* the current key at the target level, and the first keys below it */

/* ---- results of searches and readers ---- */

#define KUDC_POSITIONED 0 /* search: positioned */
#define KUDC_NOKEY (-1)   /* search: no such key, or the cursor has no index */
#define KUDC_NOMORE (-2)  /* search: no further key at the level */
#define KUDC_ROW 0u       /* reader: a row was read */
#define KUDC_NOROW 1u     /* reader: no row */
#define KUDC_HIDDEN 2u    /* re-reader: the current row is no longer visible at the level */

/* ---- error numbers ---- */

#define KUVAA_NOMEM KU_CODE('k', 'u', 'v', 'a', 'a', 16) /* an allocation failed */
#define KUVAA_MISSING                                                                              \
    KU_CODE('k', 'u', 'v', 'a', 'a', 21) /* a required array or handle is missing */
#define KUVAA_NOVALUE                                                                              \
    KU_CODE('k', 'u', 'v', 'a', 'a',                                                               \
            22) /* a column, key column or value buffer is missing or bad */
#define KUDCA_THREAD KU_CODE('k', 'u', 'd', 'c', 'a', 6) /* dump: no such thread; returned only */
#define KUDCA_INDEX KU_CODE('k', 'u', 'd', 'c', 'a', 7)  /* dump: no such index; returned only */
#define KUDCA_NOTREE KU_CODE('k', 'u', 'd', 'c', 'a', 8) /* dump: an empty subtree; returned only */
#define KUDCA_KEYSIZE KU_CODE('k', 'u', 'd', 'c', 'a', 9) /* a level's key does not fit a block */
#define KUDCA_TYPE KU_CODE('k', 'u', 'd', 'c', 'a', 10) /* not an index type, or one that cannot */
#define KUDCA_NOTRANDOM                                                                            \
    KU_CODE('k', 'u', 'd', 'c', 'a', 11) /* keys are deleted from RANDOM indexes only */
#define KUDCA_NOABOVE                                                                              \
    KU_CODE('k', 'u', 'd', 'c', 'a', 12) /* no key above the break of a SEQNTL store */
#define KUDCA_NOAPP                                                                                \
    KU_CODE('k', 'u', 'd', 'c', 'a', 14) /* long value without an application handle */
#define KUDCA_POSITION                                                                             \
    KU_CODE('k', 'u', 'd', 'c', 'a', 15)                 /* no block of calculated values there */
#define KUDCA_FULL KU_CODE('k', 'u', 'd', 'c', 'a', 100) /* a file would pass 2147483647 bytes */
#define KUDCA_TOOLONG                                                                              \
    KU_CODE('k', 'u', 'd', 'c', 'a', 101) /* value longer than its column allows */
#define KUDCA_TRANSFER KU_CODE('k', 'u', 'd', 'c', 'a', 102) /* a long value could not be moved */

typedef struct kudcaccdef kudcaccdef;
typedef struct kudccurdef kudccurdef;

/* ---- columns ---- */

/* Column definition: the client's, who fills it; it must outlive the cache. The cache reads and
 * writes the fields whose comment names it. maxlen must not change while the cache lives. */
typedef struct kudxcoldef {
    uint8_t xdbtyp_kudxcol;        /* native datatype; read by the cache */
    uint8_t oknul_kudxcol;         /* nulls allowed */
    uint8_t prec_kudxcol;          /* numeric precision */
    int8_t scale_kudxcol;          /* numeric scale */
    const char *name_kudxcol;      /* name; printed by the cache's dumps */
    const char *alias_kudxcol;     /* alias */
    const char *orignm_kudxcol;    /* name as first described */
    uint32_t maxlen_kudxcol;       /* longest value in bytes; read by the cache */
    uint32_t dfltlen_kudxcol;      /* length of the default value in bytes */
    void *dfltval_kudxcol;         /* default value */
    void *curval_kudxcol;          /* current value, maxlen bytes at least, or the handle of a long
                                      value: exchanged with the cache */
    uint32_t curlen_kudxcol;       /* its length in bytes: exchanged with the cache */
    int8_t curnul_kudxcol;         /* its null indicator: exchanged with the cache */
    uint16_t *fcnlen_kudxcol;      /* the client's */
    unsigned char *fcnval_kudxcol; /* the client's */
    uint16_t *fcnerr_kudxcol;      /* the client's */
    uint8_t ftyp_kudxcol;          /* the client's */
    uint8_t rtyp_kudxcol;          /* the client's */
    uint8_t ownd_kudxcol;          /* the client's */
    void *ownr_kudxcol;            /* the client's */
    int32_t calx_kudxcol;          /* the client's */
    int32_t id_kudxcol;            /* the client's */
    int8_t used_kudxcol;           /* the client's */
    int32_t cngb_kudxcol;          /* change flag: set to 0 by the cache when a value is loaded */
    int32_t rsta_kudxcol;          /* the client's */
    uint16_t *fcnind_kudxcol;      /* the client's */
    void *fcnext_kudxcol;          /* the client's */
    uint16_t posn_kudxcol;         /* the client's */
    uint32_t cursiz_kudxcol;       /* the client's */
    void *rellst_kudxcol;          /* the client's */
    int32_t segm_kudxcol;          /* not 0: long value, curval is its handle; read by the cache */
    uint32_t filpos_kudxcol;       /* where the value lies in the data file; set by the cache */
    void *lngsub_kudxcol;          /* the client's */
    uint16_t selord_kudxcol;       /* the client's */
    void *valsav_kudxcol;          /* the client's */
    uint32_t lensav_kudxcol;       /* the client's */
    int8_t nulsav_kudxcol;         /* the client's */
    int32_t derefid_kudxcol;       /* the client's */
    uint8_t dsctyp_kudxcol;        /* the client's */
    int32_t pndcnt_kudxcol;        /* the client's */
    int32_t ref_kudxcol;           /* the client's */
    uint8_t refdtype_kudxcol;      /* the client's */
} kudxcoldef;

/* Column data source: where one column's value of one row lies, to load it again later. */
typedef struct kudccdsdef {
    kudcaccdef *cachep_kudccds; /* the cache; the source is valid while it lives */
    kudxcoldef *colh_kudccds;   /* the column */
    int32_t cngb_kudccds;       /* the column's change flag */
    uint32_t filpos_kudccds;    /* position of the value in the data file */
    uint32_t curlen_kudccds;    /* its length in bytes */
    int8_t curnul_kudccds;      /* its null indicator */
} kudccdsdef;

/* ---- keys ---- */

/* Key column (a bind value). */
typedef struct kudcbvadef {
    kudxcoldef *col_kudcbva;    /* the thread column that it is taken from */
    unsigned char *val_kudcbva; /* value; the key's own, the column's maximum length + 1 bytes */
    uint32_t len_kudcbva;       /* its length in bytes */
    uint16_t sort_kudcbva;      /* KUDC_ASCENDING, else descending */
    uint16_t xdbtyp_kudcbva;    /* native datatype: selects the comparison */
    uint16_t level_kudcbva;     /* key level; columns of a level are contiguous, levels ascend */
    uint16_t split_kudcbva;     /* the level's split flag */
    int32_t set_kudcbva;        /* 1: holds a value for its level */
    int32_t wildcard_kudcbva;   /* 1: matches every stored value */
    void *wccol_kudcbva;        /* wildcard column; copied along, not used */
    int8_t valnul_kudcbva;      /* null indicator */
} kudcbvadef;

/* Key. */
typedef struct kudckeydef {
    uint16_t numbva_kudckey;      /* key columns */
    uint16_t numlevsize_kudckey;  /* levels that the key covers */
    kudcbvadef *arybva_kudckey;   /* the key columns */
    uint16_t *arylevsize_kudckey; /* block size of each level, in bytes */
} kudckeydef;

/* ---- creation descriptors: the caller's, read during creation only ---- */

/* Index of kudcfcreate, type RANDOM. Levels and split flags come from its key columns. */
typedef struct kudcidddef {
    uint16_t numlev_kudcidd;    /* levels; not read */
    uint16_t numbva_kudcidd;    /* key columns */
    kudcbvadef *arybva_kudcidd; /* the key columns in key order; their value buffers are not read */
    int32_t split_kudcidd;      /* not read */
} kudcidddef;

/* Thread of kudcfcreate. */
typedef struct kudctdddef {
    uint16_t numcol_kudctdd;     /* columns */
    uint16_t numidd_kudctdd;     /* indexes */
    kudxcoldef **arycol_kudctdd; /* the columns */
    kudcidddef *aryidd_kudctdd;  /* the indexes */
} kudctdddef;

/* Index of kudcftcreate. */
typedef struct kudciddtdef {
    uint16_t idxt_kudciddt;      /* KUDC_RANDOM, KUDC_SEQNTL or KUDC_DYNBRK */
    uint16_t numlev_kudciddt;    /* levels; not read */
    uint16_t numbva_kudciddt;    /* key columns */
    kudcbvadef *arybva_kudciddt; /* as in kudcidddef */
    int32_t split_kudciddt;      /* not read */
} kudciddtdef;

/* Thread of kudcftcreate. */
typedef struct kudctddtdef {
    uint16_t numcol_kudctddt;     /* columns */
    uint16_t numidd_kudctddt;     /* indexes */
    kudxcoldef **arycol_kudctddt; /* the columns */
    kudciddtdef *aryidd_kudctddt; /* the indexes */
} kudctddtdef;

/* ---- what lies in the files, little-endian ---- */

/* Row header, 16 bytes; then the links, the live counts and the columns. */
typedef struct kudcrchdef {
    uint32_t leng_kudcrch; /* length of the whole record in bytes */
    int32_t prev_kudcrch;  /* previous row of the thread */
    int32_t next_kudcrch;  /* next row of the thread */
    uint16_t stat_kudcrch; /* the client's status word */
    uint16_t delp_kudcrch; /* live mark for storage order: 0 once deleted */
} kudcrchdef;

/* Level link, 4 bytes: the next row in the chain that an index keeps for a level. */
typedef struct kudclnkdef {
    int32_t next_kudclnk;
} kudclnkdef;

/* Header of an index block, 56 bytes; then the entries, free space, and the keys packed from the end. */
typedef struct kudcidhdef {
    uint16_t idxt_kudcidh; /* index type */
    uint16_t pad1_kudcidh; /* 0 */
    int32_t addr_kudcidh;  /* the block's own position */
    int32_t lsib_kudcidh;  /* left sibling */
    int32_t rsib_kudcidh;  /* right sibling */
    int32_t coun_kudcidh;  /* on a root: keys inserted into its tree */
    uint16_t size_kudcidh; /* bytes of the block */
    uint16_t free_kudcidh; /* bytes not used by entries and keys */
    uint16_t kyct_kudcidh; /* entries */
    uint16_t kymx_kudcidh; /* largest stored key of the level in bytes */
    uint16_t mxct_kudcidh; /* entries of the largest size that fit */
    uint16_t clct_kudcidh; /* key columns of the level */
    uint16_t levl_kudcidh; /* level, from 0 */
    uint16_t pad2_kudcidh; /* 0 */
    int32_t last_kudcidh;  /* 1: the index's last level */
    int32_t ublk_kudcidh;  /* KUDC_NONE on a root exactly; else a parent, not kept up to date */
    int32_t splt_kudcidh;  /* the level's split flag */
    int32_t leaf_kudcidh;  /* 1: leaf */
    int32_t less_kudcidh;  /* child with the keys below the first entry */
} kudcidhdef;

/* Entry of an index block, 20 bytes. */
typedef struct kudcinddef {
    int32_t frst_kudcind;  /* first row, or child block */
    int32_t last_kudcind;  /* last row */
    int32_t root_kudcind;  /* root block, or first block, of the next level under this key */
    int32_t coun_kudcind;  /* rows under this key */
    uint16_t offs_kudcind; /* where the stored key begins in the block */
    uint16_t pad1_kudcind; /* 0 */
} kudcinddef;

/* Column header of a stored key, 8 bytes; the values of the columns follow behind the headers. */
typedef struct kudcflkchdef {
    uint32_t len_kudcflkch;  /* value length in bytes; 0 for NULL */
    uint16_t type_kudcflkch; /* native datatype */
    int8_t isnull_kudcflkch; /* null indicator */
    uint8_t pad1_kudcflkch;  /* 0 */
} kudcflkchdef;

/* ---- indexes and threads ---- */

/* RANDOM. */
typedef struct kudcridxdef {
    int32_t *splt_kudcridx; /* split flag of each level */
    int32_t root_kudcridx;  /* root block of level 0 */
} kudcridxdef;

/* Places in a SEQNTL index, one a level. */
typedef struct kudcscldef {
    int32_t *apos_kudcscl; /* block of each level */
    int32_t *kpos_kudcscl; /* entry of each level */
    uint16_t npos_kudcscl; /* levels */
} kudcscldef;

/* A key and its places. */
typedef struct kudcsposdef {
    kudckeydef ckey_kudcspos;
    kudcscldef cloc_kudcspos;
} kudcsposdef;

/* SEQNTL. */
typedef struct kudcsidxdef {
    kudcsposdef head_kudcsidx; /* the first key of each level */
    kudcsposdef tail_kudcsidx; /* the last key of each level */
} kudcsidxdef;

/* DYNBRK. */
typedef struct kudcbidxdef {
    kudckeydef *keyp_kudcbidx; /* break key: a row's key columns while it is compared */
    kudcbvadef *
        *abvap_kudcbidx; /* for each thread column the break key's column over it, or null */
} kudcbidxdef;

/* Index. */
typedef struct kudcidxdef {
    uint16_t *lvwd_kudcidx;   /* per level: sum of the maximum lengths of its key columns */
    uint16_t *lvcl_kudcidx;   /* per level: its key columns */
    uint16_t lvst_kudcidx;    /* first level slot within the thread */
    uint16_t lvct_kudcidx;    /* levels */
    kudcidhdef *lvrt_kudcidx; /* per level: template header of its blocks */
    kudcbvadef *cols_kudcidx; /* working copy of the key columns, with buffers of their own */
    kudckeydef goal_kudcidx;  /* working key: the key of the row being stored; buffers of its own */
    uint16_t clct_kudcidx;    /* key columns */
    uint16_t idxt_kudcidx;    /* index type */
    union {
        kudcridxdef rinf_kudcidx;
        kudcsidxdef sinf_kudcidx;
        kudcbidxdef binf_kudcidx;
    } tinf_kudcidx;          /* by type */
    void *curmemlst_kudcidx; /* list of cursors kept for reuse, or null */
} kudcidxdef;

/* Thread. */
typedef struct kudcthddef {
    int32_t frst_kudcthd;      /* first row */
    int32_t last_kudcthd;      /* last row */
    uint16_t clct_kudcthd;     /* columns */
    uint16_t idxc_kudcthd;     /* indexes */
    uint16_t idlc_kudcthd;     /* level slots: the sum over the indexes of levels + 1 */
    uint16_t *delp_kudcthd;    /* per index: levels at which the current row is visible */
    kudcidxdef *idxs_kudcthd;  /* the indexes */
    kudcrchdef trch_kudcthd;   /* header of the row being stored or last read */
    uint32_t tpln_kudcthd;     /* its values in bytes */
    kudclnkdef *idxl_kudcthd;  /* its link of each level slot */
    kudxcoldef **acol_kudcthd; /* the columns */
    int32_t calc_kudcthd;      /* 1 once calculated values were stored */
    int32_t clen_kudcthd;      /* not read */
    int32_t coun_kudcthd;      /* rows stored */
    uint32_t mlen_kudcthd;     /* longest row data in bytes */
    int32_t useb_kudcthd;      /* 1: rows are assembled in the row buffer */
} kudcthddef;

/* ---- cursors and the cache ---- */

/* Position record of an indexed cursor: one of three, the held row first in each. */
typedef struct kudcrposdef {
    int32_t
        held_kudcrpos; /* the row found by the last search, taken by the next read; or KUDC_NONE */
} kudcrposdef;
typedef struct kudcsipsdef {
    int32_t held_kudcsips;     /* as above */
    kudcsposdef spos_kudcsips; /* the cursor's key and its place of each level */
} kudcsipsdef;
typedef struct kudcbipsdef {
    int32_t held_kudcbips; /* as above */
    int32_t curr_kudcbips; /* the current row */
    int32_t next_kudcbips; /* the row after it */
} kudcbipsdef;

/* Cursor. */
struct kudccurdef {
    kudcaccdef *cachep_kudccur; /* owning cache */
    uint16_t thread_kudccur;    /* thread */
    int16_t idx_kudccur;        /* index; negative: storage order */
    int32_t currnum_kudccur;    /* rows read so far; 0: nothing yet, -1: exhausted */
    int32_t curleft_kudccur;    /* rows under the key found; storage order: of the thread */
    int32_t currpos_kudccur;    /* position of the current row; 0 before the first read */
    int32_t nxtradr_kudccur;    /* next row to read; KUDC_NONE: by the current row's link */
    int32_t curradr_kudccur;    /* what nxtradr was before the last read */
    kudckeydef *keyp_kudccur;   /* current key; null in storage order */
    kudccurdef *link_kudccur;   /* next cursor of the cache */
    void *ipsh_kudccur;         /* position record by the index's type; null in storage order */
};

/* Cache. */
struct kudcaccdef {
    kux *kuxp_kudcacc;        /* context: errors and allocations */
    kux *kuvp_kudcacc;        /* second context: its release callback frees cursors, key values and
                                  the thread, index and block arrays */
    void *skufh_kudcacc;      /* block cache of both files; borrowed */
    void *datf_kudcacc;       /* data file */
    void *idxf_kudcacc;       /* index file */
    int32_t pdl1_kudcacc;     /* -1; not read */
    int32_t nxdo_kudcacc;     /* end of the data file */
    int32_t nxio_kudcacc;     /* end of the index file */
    kudcthddef *thrd_kudcacc; /* threads */
    unsigned char *indx_kudcacc; /* the index block being worked on, isiz bytes */
    unsigned char *copy_kudcacc; /* a second one, for splits and copies */
    uint16_t thct_kudcacc;       /* threads */
    uint16_t isiz_kudcacc;       /* bytes of the two: the largest block, at least 512 */
    kudccurdef *curs_kudcacc;    /* live cursors */
    unsigned char *bufp_kudcacc; /* row buffer, or null */
    uint32_t bufs_kudcacc;       /* its bytes */
};

#endif
