# Tests of the maintenance side of AppWorkplace: records, pages, and the verbs that deal with them.
add_zrt_workplace_test(maintenance_records)
