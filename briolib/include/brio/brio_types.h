/**
 * @file
 * Status codes, event ids and records that the modem library shares with its callers.
 *
 * Records keep the order of their fields and natural alignment: their layout is the same on 32-bit and 64-bit
 * ARM and x86. Only enum_pair holds a pointer.
 */
#ifndef BRIO_BRIO_TYPES_H
#define BRIO_BRIO_TYPES_H

#include <stdint.h>

/** Library status: the result of every brio_* and of most briolib_* operations. The values are fixed. */
enum brio_status {
  BRIO_STATUS_OK = 0,          /**< done */
  BRIO_STATUS_NOT_OPEN = 1,    /**< the library is not open */
  BRIO_STATUS_BUSY = 2,        /**< brio_open while open or closing; open or close where they are refused */
  BRIO_STATUS_FATAL = 3,       /**< open, but the modem channel is lost or a close is under way */
  BRIO_STATUS_FAILURE = 4,     /**< error result of the modem, failed request, failed initialisation */
  BRIO_STATUS_TIMEOUT = 5,     /**< no answer in time; also brio_open giving up on "ATE0" or "AT+CFUN=1" */
  BRIO_STATUS_INVALID = 6,     /**< null or unusable argument, or an answer without the expected line */
  BRIO_STATUS_UNAVAILABLE = 7, /**< the value could not be obtained */
  BRIO_STATUS_SCAN_ABORTED = 8 /**< a manual network scan was aborted */
};

/** Library events (brio_set_callback_for_event_id). Ids 4 and 8 carry no event. */
enum brio_event_id {
  BRIO_EVENT_BARS_CHANGED = 0,           /**< int32_t: the new bars, of a report only */
  BRIO_EVENT_PDP_ACTIVATION_ALLOWED = 1, /**< two uint32_t: attached, allowed */
  BRIO_EVENT_DATA_SERVICE_MODE = 2,      /**< uint32_t; never raised by this library */
  BRIO_EVENT_ROAMING_STATUS = 3,         /**< uint32_t; never raised by this library */
  BRIO_EVENT_SERVING_PLMN_CHANGED = 5,   /**< no data */
  BRIO_EVENT_SIM_PLMN_INFO = 6,          /**< first field uint16_t; never raised by this library */
  BRIO_EVENT_TX_POWER_LIMIT_CHANGE = 7,  /**< no data; never raised by this library */
  BRIO_EVENT_TIME_INFO = 9               /**< size 4, pointer to a network_time */
};
/** One more than the greatest event id. */
#define BRIO_EVENT_COUNT 10

/**
 * Callback of one library event.
 *
 * Runs on the thread that raises the event: the event thread for unsolicited results, the read thread when a
 * command's answer brings the change, or a caller's own thread. It must be short. On the library's threads
 * requests, opening and closing are refused with an error line (see brio.h), and getters return
 * BRIO_STATUS_NOT_OPEN while the library opens. The raiser may hold the URC-data mutex: the callback neither
 * locks nor unlocks it; getters that send no command may be called. `data` is borrowed for the call. The
 * result is ignored.
 */
typedef uint32_t (*brio_event_callback)(uint32_t id, uint32_t data_size, const void* data);

/** MCC and MNC texts of a network that is not known. */
#define BRIO_PLMN_UNKNOWN "FFF"

/**
 * The shared modem-data record, guarded by the URC-data mutex (briolib_lock_urc_data_mutex). "Unknown" is the
 * value after a reset; a partial reset (registered for no domain) leaves the fields marked (kept) alone.
 * Texts are NUL-terminated; one that a host stores need not be.
 *
 * signal_a and signal_b are steps of the modem, whose meaning depends on rat:
 *
 *     rat                 field     0          steps                        last step
 *     0, 3 GSM            signal_a  < -110     1..62  signal_a - 111 dBm    63  >= -48   RSSI
 *     2, 4, 5, 6 UMTS     signal_a  < -120     1..95  signal_a - 121 dBm    96  >= -25   RSCP
 *     2, 4, 5, 6 UMTS     signal_b  < -24      1..48  (signal_b - 49)/2 dB  49  >= 0     Ec/Io
 *     7 E-UTRAN           signal_a  < -140     1..96  signal_a - 141 dBm    97  >= -44   RSRP
 *
 * Above the last step there is no value; below 0 (two's complement) counts as 0. A poll stores the low 8 bits
 * of what the modem says, a report all.
 *
 * A denied PS registration ("+CGREG: 3") stores 3 in cs_reg_status and leaves ps_reg_status as it was.
 * curr_lte_ant is 0 or 1 as the modem numbers its antennas, in reports the other way round than in answers;
 * bas_value_a is the main antenna's, bas_value_b the diversity antenna's. band is a UMTS band, an LTE band
 * + 100, or 850, 900, 1800 or 1900 for GSM, and stays 0 unless wan_type is 7.
 */
typedef struct brio_atcmd_data {
  uint8_t cs_reg_status;     /**< +CREG: 0 not registered, 1 home, 2 roaming, 3 denied (kept) */
  uint8_t ps_reg_status;     /**< +CGREG: 0 not registered, 1 home, 2 roaming (kept) */
  uint8_t rat_valid;         /**< 1 once a registration line left a known rat (kept) */
  int8_t cops_mode;          /**< network selection: 0 automatic, 1 manual, -1 anything else and unknown */
  uint16_t lac;              /**< location area code, unknown 0xFFFF */
  uint32_t cell_id;          /**< cell identity, unknown 0xFFFFFFFF */
  uint8_t rat;               /**< access technology 0..7 of 3GPP TS 27.007, 7 E-UTRAN, unknown 0xFF */
  uint16_t rac;              /**< routing area code, unknown 0x00FF */
  char mcc[4];               /**< serving MCC digits, unknown "FFF" */
  char mnc[4];               /**< serving MNC, two or three digits, unknown "FFF" */
  char plmn_text[10];        /**< PLMN text of +GTSCINFO, unknown "None" */
  char band_text[30];        /**< band text of +GTSCINFO, unknown "BAND_NONE" */
  uint16_t arfcn;            /**< channel number of +GTSCINFO, unknown 0 (kept) */
  uint8_t reject_bytes[6];   /**< causes: [1] CS, [2] PS, [3] SM, [4] EMM, [5] ESM; [0] unused (kept) */
  uint16_t reject_words[10]; /**< rejecting MCC and MNC, in pairs CS, PS, SM, EMM, ESM (kept) */
  uint32_t signal_a;         /**< signal in the steps above, unknown 255 */
  uint32_t signal_b;         /**< Ec/Io in the steps above, unknown 255 */
  uint8_t bars;              /**< signal bars as the modem counts them, unknown 255 */
  uint8_t pdp_state;         /**< 0 inactive, 1 active, unknown 0xFF */
  uint8_t mm_state;          /**< mobility management state of +GTSCSTAT (kept) */
  uint8_t mm_substate;       /**< its substate (kept) */
  uint8_t gmm_state;         /**< GPRS mobility management state (kept) */
  uint8_t gmm_substate;      /**< its substate (kept) */
  uint8_t spare_state;       /**< never set here (kept) */
  uint8_t nmo;               /**< network mode of operation, unknown 0xFF */
  uint32_t time_info[4];     /**< a network_time; its third word is -1 after a full reset (kept) */
  int16_t carrier_config;    /**< carrier configuration before the open changed it, unknown -1 (kept) */
  uint16_t carrier_word;     /**< not used, 0x00FF after a full reset (kept) */
  uint16_t bas_value_a;      /**< antenna measurement / 16, two's complement, unknown 0xFFFF */
  uint16_t bas_value_b;      /**< antenna measurement / 16, two's complement, unknown 0xFFFF */
  uint8_t curr_lte_ant;      /**< LTE antenna in use, unknown 0xFF */
  uint8_t emm_state;         /**< EPS mobility management state of +GTLTEINFO (kept) */
  uint8_t emm_substate;      /**< its substate (kept) */
  uint8_t rrc_state;         /**< RRC state (kept) */
  uint16_t tac;              /**< tracking area code (kept) */
  uint8_t bas_query_flag;    /**< 1 to query the BAS antenna status; set by hosts only (kept) */
  uint8_t wan_type;          /**< BRIO_WAN_TYPE_*, or as the WAN information file says (kept) */
  uint32_t band;             /**< band of the last registration line, unknown 0 */
} brio_atcmd_data;

#define BRIO_WAN_TYPE_UNKNOWN 0 /**< not decided yet, or the model could not be read */
#define BRIO_WAN_TYPE_KESTREL 6 /**< WAN hardware Kestrel */
#define BRIO_WAN_TYPE_OSPREY 7  /**< WAN hardware Osprey: names the band in its registration lines */

/** Network time as the modem sends it (16 bytes). A field that the source did not give holds all
 * ones; from brio_get_network_time, 0. */
typedef struct network_time {
  uint8_t month;     /**< 1..12 */
  uint8_t day;       /**< 1..31 */
  uint8_t hour;      /**< 0..23 */
  uint8_t minute;    /**< 0..59 */
  uint8_t second;    /**< 0..59 */
  uint8_t spare;     /**< 0xFF */
  uint16_t year;     /**< as sent, for example two digits */
  int32_t time_zone; /**< quarter hours east of UTC */
  int32_t dst;       /**< daylight-saving value, -1 when the source has none */
} network_time;

/** One entry of a PLMN list read from the SIM (10 bytes). */
typedef struct plmn_entry {
  char mcc[4];         /**< three digits; of a damaged entry whatever it holds */
  char mnc[4];         /**< two or three digits, as mcc */
  uint8_t access_tech; /**< bits 1 GSM, 2 UTRAN, 4 E-UTRAN; 255 none set; 0 in a list without this field */
  uint8_t spare;       /**< not used */
} plmn_entry;

#define BRIO_UPLMN_MAX 260 /**< entries of sim_plmn_data.uplmn */
#define BRIO_OPLMN_MAX 260 /**< of oplmn */
#define BRIO_FPLMN_MAX 40  /**< of fplmn */
#define BRIO_HPLMN_MAX 10  /**< of hplmn */
#define BRIO_EHPLMN_MAX 10 /**< of ehplmn */

/**
 * PLMN lists of the SIM (7,336 bytes), guarded by the static-data mutex. A count tells how many entries were
 * decoded and may exceed the list's capacity: readers bound it. Of fplmn only the first entry is right, the
 * others are read at wrong places (a quirk that is kept). The library never reads ehplmn by itself.
 */
typedef struct sim_plmn_data {
  plmn_entry uplmn[BRIO_UPLMN_MAX];   /**< user-controlled PLMNs, EF PLMNwAcT */
  uint16_t uplmn_count;               /**< decoded, see above */
  plmn_entry oplmn[BRIO_OPLMN_MAX];   /**< operator-controlled PLMNs, EF OPLMNwAcT */
  uint16_t oplmn_count;               /**< decoded, see above */
  plmn_entry fplmn[BRIO_FPLMN_MAX];   /**< forbidden PLMNs, EF FPLMN */
  uint16_t fplmn_count;               /**< decoded, see above */
  plmn_entry hplmn[BRIO_HPLMN_MAX];   /**< home PLMN with access technology, EF HPLMNwAcT */
  uint16_t hplmn_count;               /**< decoded, see above */
  plmn_entry ehplmn[BRIO_EHPLMN_MAX]; /**< equivalent home PLMNs, EF EHPLMN */
  uint16_t ehplmn_count;              /**< decoded, see above */
  char home_mcc[4];                   /**< home PLMN; first byte 0 while not derived */
  char home_mnc[4];                   /**< as home_mcc */
  uint8_t reserved[1518];             /**< not used */
} sim_plmn_data;

/** SIM information block (129 bytes), guarded by the static-data mutex. Texts, NUL-terminated, empty when
 * unread. */
typedef struct sim_info_data {
  char psloci[29];   /**< EF PSLOCI, 28 hexadecimal digits */
  char loci[23];     /**< EF LOCI, 22 hexadecimal digits */
  char epsloci[37];  /**< EF EPSLOCI, 36 hexadecimal digits */
  char iccid[24];    /**< EF ICCID, up to 20 digits */
  char reserved[16]; /**< not used */
} sim_info_data;

/** SIM identity (40 bytes): NUL-padded texts. */
typedef struct sim_identity {
  char iccid[24]; /**< up to 20 digits */
  char imsi[16];  /**< up to 15 digits */
} sim_identity;

/** Answer to "AT+GTSIMSTATUS?". Preset to 0 and 15. */
typedef struct sim_card_status {
  uint32_t card_status; /**< of the modem: 0, 1, 4 busy; 2, 5 no card; 3 ready */
  uint32_t lock_status; /**< the modem's lock status */
} sim_card_status;

/** SIM status values of brio_get_wn3_sim_status. */
enum brio_sim_status {
  SIM_NOT_READ = 0,                    /**< busy, or not read yet */
  NO_SIM = 1,                          /**< no card */
  PIN_LOCKED = 2,                      /**< never returned */
  PUK_LOCKED = 3,                      /**< never returned */
  PERMANENTLY_DISABLED = 4,            /**< never returned */
  ILLEGAL_SIM = 5,                     /**< never returned */
  INVALID_OTHER = 6,                   /**< any other card status */
  WAITING_TO_ATTACH = 7,               /**< never returned */
  BLACKLISTED_SIM = 8,                 /**< never returned */
  WAITING_TO_ACTIVATE_PDP_CONTEXT = 9, /**< never returned */
  SERVICE_NOT_SUBSCRIBED = 10,         /**< never returned */
  SIM_STATUS_OK = 11                   /**< ready */
};

/** Modem identity (90 bytes). Texts are NUL-terminated within their fields. */
typedef struct modem_info {
  char fw_ver[33];      /**< firmware version */
  char serial[13];      /**< serial number */
  char imei[16];        /**< IMEI, 15 digits */
  char hw_ver[13];      /**< hardware version */
  uint16_t fault_ct;    /**< the modem's fault counter */
  uint8_t reserved[12]; /**< not used */
} modem_info;

/** BAS antenna status. Callers preset it to 0xFFFF, 0xFFFF, 255 (unknown). */
typedef struct bas_status {
  uint16_t value_a; /**< main antenna: measurement / 16, two's complement */
  uint16_t value_b; /**< diversity antenna, as value_a */
  uint8_t antenna;  /**< LTE antenna in use, 0 or 1 as the modem numbers it */
} bas_status;

/**
 * What the diagnostic page prints: a copy of the shared record and its neighbours, 192 bytes
 * (briolib_get_atcmd_snapshot). Fields are those of brio_atcmd_data unless a comment says more; texts are
 * NUL-terminated.
 */
typedef struct atcmd_snapshot {
  uint8_t cs_reg_status;     /**< see brio_atcmd_data */
  uint8_t ps_reg_status;     /**< see brio_atcmd_data */
  uint16_t lac;              /**< see brio_atcmd_data */
  uint32_t cell_id;          /**< see brio_atcmd_data */
  uint8_t rat;               /**< see brio_atcmd_data */
  uint16_t rac;              /**< see brio_atcmd_data */
  char mcc[4];               /**< see brio_atcmd_data */
  char mnc[4];               /**< see brio_atcmd_data */
  char plmn_text[10];        /**< see brio_atcmd_data */
  char band_text[30];        /**< see brio_atcmd_data */
  uint16_t arfcn;            /**< see brio_atcmd_data */
  uint8_t reject_bytes[6];   /**< see brio_atcmd_data */
  uint16_t reject_words[10]; /**< see brio_atcmd_data */
  int32_t signal_a;          /**< see brio_atcmd_data */
  int32_t signal_b;          /**< see brio_atcmd_data */
  uint8_t bars;              /**< see brio_atcmd_data */
  uint8_t pdp_state;         /**< see brio_atcmd_data */
  uint8_t mm_state;          /**< see brio_atcmd_data */
  uint8_t mm_substate;       /**< see brio_atcmd_data */
  uint8_t gmm_state;         /**< see brio_atcmd_data */
  uint8_t gmm_substate;      /**< see brio_atcmd_data */
  uint8_t rrc_state;         /**< see brio_atcmd_data */
  uint8_t nmo;               /**< see brio_atcmd_data */
  uint8_t rat_valid;         /**< see brio_atcmd_data */
  uint8_t spare_state;       /**< see brio_atcmd_data */
  int16_t carrier_config;    /**< see brio_atcmd_data */
  uint16_t sim_status;       /**< enum brio_sim_status, of the last brio_get_wn3_sim_status */
  uint8_t curr_lte_ant;      /**< see brio_atcmd_data */
  int16_t bas_value_a;       /**< see brio_atcmd_data */
  int16_t bas_value_b;       /**< see brio_atcmd_data */
  uint8_t emm_state;         /**< see brio_atcmd_data */
  uint8_t emm_substate;      /**< see brio_atcmd_data */
  uint16_t tac;              /**< see brio_atcmd_data */
  uint8_t bas_query_flag;    /**< see brio_atcmd_data */
  uint8_t wan_type;          /**< see brio_atcmd_data */
  uint32_t band;             /**< see brio_atcmd_data */
  uint32_t snapshot_mode;    /**< cops_mode; while that is unknown, of the stored selection */
  char fw_ver[33];           /**< " " while the modem information was not read */
  char lib_ver[9];           /**< "S30J38" */
  char imei[16];             /**< " " while the modem information was not read */
} atcmd_snapshot;

/** One row of a value-to-name table (enum_to_string). */
typedef struct enum_pair {
  uint32_t value;   /**< the value */
  const char* name; /**< its name, borrowed */
} enum_pair;

/** SAR back-off modes of g_pre_sar_mode. */
enum brio_sar_mode {
  BRIO_SAR_OFF = 0, /**< no back-off */
  BRIO_SAR_ON = 1,  /**< back-off near a body */
  BRIO_SAR_INIT = 2 /**< nothing applied since the monitor started */
};

#ifdef __cplusplus
static_assert(sizeof(brio_atcmd_data) == 144, "brio_atcmd_data is 144 bytes");
static_assert(sizeof(network_time) == 16, "network_time is 16 bytes");
static_assert(sizeof(plmn_entry) == 10, "plmn_entry is 10 bytes");
static_assert(sizeof(sim_plmn_data) == 7336, "sim_plmn_data is 7,336 bytes");
static_assert(sizeof(sim_info_data) == 129, "sim_info_data is 129 bytes");
static_assert(sizeof(sim_identity) == 40, "sim_identity is 40 bytes");
static_assert(sizeof(modem_info) == 90, "modem_info is 90 bytes");
static_assert(sizeof(atcmd_snapshot) == 192, "atcmd_snapshot is 192 bytes");
#endif

#endif
