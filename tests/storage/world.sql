-- The small world in which each call of operations/ begins; harness/world.cpp adds what differs in one column.

INSERT INTO unique_data VALUES ('k', 'v', 'r0', 'r1', 'r2'), ('half', 'it''s', '', NULL, '1');
INSERT INTO unique_data(key) VALUES ('evt_refresh_token'), ('evt_access_token'), ('evt_push_token');

INSERT INTO folder_info VALUES ('g', 'c', 5000000001, 'f', 5000000002, 5000000003), ('null', NULL, 1, NULL, 2, 3),
    ('empty', '', 0, '', 0, 0), ('late', 'c', 9223372036854775807, 'f', -9223372036854775803, 1);

-- id, token, type, expiry, 1 for read and 2 for checked, arrival
INSERT INTO push_noti_info VALUES (1, 't', 'a', 5000000000, 0, 6000000010), (2, 'u', 'a', 5000000001, 0, 30),
    (3, 'v', 'a', 4999999999, 0, 20), (4, 'w', 'b', 7000000000, 1, 25), (5, '', 'a', 7000000000, 0, 40),
    (6, 'x', 'b', 7000000000, 2, 50), (7, '', 'e', 7000000000, 0, 1);

-- id, expiry, downloads, size, token, description, type, sender, recipients, original, thumbnail, name, kind,
-- downloaded, big and mid thumbnail, push status
INSERT INTO content_info VALUES
    (1, 5000000000, 4000000000, 3000000000, 't', 'd', 'a', 'from', 'to', 'o1', 's1', 'n1', 'k1', 0, 'b1', 'm1', 1),
    (2, 5000000001, 2, 3, 't', 'dd', 'aa', 'ff', 'tt', 'o2', 's2', '', NULL, 0, 'b2', 'm2', 2),
    (3, 4999999999, 2, 3, 'u', NULL, '', '', NULL, 'o3', '', NULL, '', 1, '', '', NULL);

-- id, 1 for uploads, 2 for thumbnails, 3 for downloads, status, item, request, wifi only, retries
INSERT INTO content_info_status SELECT column1, column2, column3, column4, column5, column1 & 1, column6,
    3000000000 + column1, 3100000000 + column1, -10 - column1, 1700 + column1, 't' || column1, 'k' || column1,
    'o' || column1, 's' || column1, 'n' || column1, 'p' || column1, 'm' || column1
    FROM (VALUES (1, 1, 0, 61, 7, 0), (2, 1, 1, 61, 7, 0), (3, 1, 2, 62, 7, 0), (4, 1, 2, 63, 7, 1), (5, 1, 2, 64, 7, 5),
        (6, 1, 2, 65, 7, 6), (7, 1, 3, 66, 8, 0), (8, 1, 4, 67, 8, 0), (9, 1, 5, 68, 9, 0), (10, 1, 2, 69, 9, 0),
        (11, 1, 0, 70, 0, 0), (12, 3, 0, 71, 12, 2), (13, 2, 5, 72, 3000000005, 0));
UPDATE content_info_status SET content_type = NULL, local_path = NULL WHERE sync_id = 2;
UPDATE content_info_status SET content_type = '', local_path = '' WHERE sync_id = 3;
UPDATE content_info_status SET sent_time = 1701 WHERE req_id = 7;

-- of a request for every status: id, request, files, status, recipients, expiry, size, token, applications, text, time
WITH RECURSIVE status(n) AS (VALUES (0) UNION ALL SELECT n + 1 FROM status WHERE n < 8)
INSERT INTO upload_request_data SELECT NULL, 7 + n, 5 + n, n, 2 + n, iif(n % 8, 5000000000000, 6000172800000) + n, 5000000000 + n, 'u' || n,
    n % 3, 'd' || n, 7000000000 - n FROM status;
INSERT INTO upload_request_data VALUES (20, 3000000005, 3, 8, 1, 5000000000, 6000000000, '', 2, NULL, 7);
INSERT INTO contact_details VALUES (1, 7, -1, '7700900123', '44'), (2, 7, 2, '5', ''), (3, 7, 3, '', '44'),
    (4, 8, 4, NULL, '1'), (5, 8, 5, '6', NULL), (6, 3000000005, 6, '7', '8');

INSERT INTO recent_receiver_group VALUES (1, 1, '1969-01-01 00:00:01'), (2, 2, '1969-01-01 00:00:03'),
    (3, 3, '1969-01-01 00:00:02'), (4, 4, '1969-01-01 00:00:03');
INSERT INTO recent_receiver_details VALUES (1, 1, '7', '44', 1), (2, 2, '8', '', 1), (3, 3, '', '1', 2),
    (4, 0, '7', '44', 3), (5, 5, 'Ez', '44', 4), (6, 6, NULL, NULL, 4);

PRAGMA user_version = 7;
