-- The server side of the cloud database: zones, records, subscriptions and
-- shares in the schema "cloud", under row-level security so that a role
-- (the account is current_user) sees only its own zones and the zones that
-- other roles share with it. Applying the file again changes nothing: each
-- version's block runs only while the schema is older, so a role that does
-- not own the tables can run it on an up-to-date server. Version 1 stands
-- as it was first written; version 2 changes it in place, on new servers
-- and old ones alike. (The blocks run as one transaction.)
--
-- A change to records sends one NOTIFY per statement to the zone owner's
-- private channel and to the shared channel of each participant, so a
-- listening subscription hears of it without polling (a silent push).
DO $setup$
BEGIN
  -- Two first runs at once: the second waits, then finds the version.
  PERFORM pg_advisory_xact_lock(hashtext('cloud.schema'));
  IF to_regclass('cloud.schema_version') IS NOT NULL THEN
    RETURN;
  END IF;

  CREATE SCHEMA cloud;
  GRANT USAGE ON SCHEMA cloud TO PUBLIC;

  -- The channel a role listens on for one of its databases ('private' or
  -- 'shared'); channel names are identifiers, so the role is hashed.
  CREATE FUNCTION cloud.channel(role name, database text) RETURNS text
    LANGUAGE sql IMMUTABLE STRICT
    RETURN 'cloud_' || database || '_' || md5(role::text);

  -- Change tags come from one sequence, so a record deleted and made again
  -- never repeats a tag that a client still holds.
  CREATE SEQUENCE cloud.change_tags;
  GRANT USAGE ON SEQUENCE cloud.change_tags TO PUBLIC;

  CREATE TABLE cloud.zones (
    owner name NOT NULL DEFAULT current_user,
    name text NOT NULL,
    -- Kept by the trigger on shares, so that a participant who writes into
    -- the zone can reach the other participants' channels.
    participants name[] NOT NULL DEFAULT '{}',
    PRIMARY KEY (owner, name)
  );

  CREATE TABLE cloud.shares (
    owner name NOT NULL DEFAULT current_user,
    zone text NOT NULL,
    participant name NOT NULL,
    permission text NOT NULL DEFAULT 'readWrite'
      CHECK (permission IN ('readOnly', 'readWrite')),
    PRIMARY KEY (owner, zone, participant),
    FOREIGN KEY (owner, zone) REFERENCES cloud.zones ON DELETE CASCADE
  );

  CREATE TABLE cloud.records (
    owner name NOT NULL,
    zone text NOT NULL,
    name text NOT NULL,
    type text NOT NULL,
    fields jsonb NOT NULL DEFAULT '{}',
    parent text,
    change_tag bigint NOT NULL DEFAULT nextval('cloud.change_tags'),
    modified_by name NOT NULL DEFAULT current_user,
    modified_at timestamptz NOT NULL DEFAULT now(),
    PRIMARY KEY (owner, zone, name),
    FOREIGN KEY (owner, zone) REFERENCES cloud.zones ON DELETE CASCADE
  );
  CREATE INDEX records_by_type ON cloud.records (owner, zone, type);

  CREATE TABLE cloud.subscriptions (
    owner name NOT NULL DEFAULT current_user,
    database text NOT NULL CHECK (database IN ('private', 'shared')),
    id text NOT NULL,
    silent boolean NOT NULL DEFAULT true,
    PRIMARY KEY (owner, database, id)
  );

  GRANT SELECT, INSERT, UPDATE, DELETE
    ON cloud.zones, cloud.shares, cloud.records, cloud.subscriptions TO PUBLIC;

  -- Forced, so that the role that ran this file is held to the same rules.
  ALTER TABLE cloud.zones ENABLE ROW LEVEL SECURITY;
  ALTER TABLE cloud.zones FORCE ROW LEVEL SECURITY;
  ALTER TABLE cloud.shares ENABLE ROW LEVEL SECURITY;
  ALTER TABLE cloud.shares FORCE ROW LEVEL SECURITY;
  ALTER TABLE cloud.records ENABLE ROW LEVEL SECURITY;
  ALTER TABLE cloud.records FORCE ROW LEVEL SECURITY;
  ALTER TABLE cloud.subscriptions ENABLE ROW LEVEL SECURITY;
  ALTER TABLE cloud.subscriptions FORCE ROW LEVEL SECURITY;

  -- A participant sees the share that names it; only the owner changes it.
  CREATE POLICY shares_read ON cloud.shares FOR SELECT
    USING (owner = current_user OR participant = current_user);
  CREATE POLICY shares_write ON cloud.shares FOR ALL
    USING (owner = current_user) WITH CHECK (owner = current_user);
  -- A participant may leave. The zone's list of participants then keeps it
  -- until the owner next changes a share: at worst a push too many.
  CREATE POLICY shares_leave ON cloud.shares FOR DELETE
    USING (participant = current_user);

  CREATE POLICY zones_read ON cloud.zones FOR SELECT
    USING (owner = current_user OR EXISTS (
      SELECT 1 FROM cloud.shares s
       WHERE s.owner = zones.owner AND s.zone = zones.name
         AND s.participant = current_user));
  CREATE POLICY zones_write ON cloud.zones FOR ALL
    USING (owner = current_user) WITH CHECK (owner = current_user);

  CREATE POLICY records_read ON cloud.records FOR SELECT
    USING (owner = current_user OR EXISTS (
      SELECT 1 FROM cloud.shares s
       WHERE s.owner = records.owner AND s.zone = records.zone
         AND s.participant = current_user));
  CREATE POLICY records_write ON cloud.records FOR ALL
    USING (owner = current_user OR EXISTS (
      SELECT 1 FROM cloud.shares s
       WHERE s.owner = records.owner AND s.zone = records.zone
         AND s.participant = current_user AND s.permission = 'readWrite'))
    WITH CHECK (owner = current_user OR EXISTS (
      SELECT 1 FROM cloud.shares s
       WHERE s.owner = records.owner AND s.zone = records.zone
         AND s.participant = current_user AND s.permission = 'readWrite'));

  CREATE POLICY subscriptions_own ON cloud.subscriptions FOR ALL
    USING (owner = current_user) WITH CHECK (owner = current_user);

  CREATE FUNCTION cloud.keep_participants() RETURNS trigger
    LANGUAGE plpgsql AS $fn$
  BEGIN
    UPDATE cloud.zones z
       SET participants = ARRAY(SELECT s.participant FROM cloud.shares s
                                 WHERE s.owner = z.owner AND s.zone = z.name
                                 ORDER BY 1)
     WHERE (z.owner, z.name) IN (SELECT n.owner, n.zone FROM changed n);
    RETURN NULL;
  END $fn$;
  CREATE TRIGGER shares_added AFTER INSERT ON cloud.shares
    REFERENCING NEW TABLE AS changed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.keep_participants();
  CREATE TRIGGER shares_removed AFTER DELETE ON cloud.shares
    REFERENCING OLD TABLE AS changed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.keep_participants();

  -- One notification per zone touched by the statement; the payload names
  -- the zone ({"owner": …, "zone": …}).
  CREATE FUNCTION cloud.announce_changes() RETURNS trigger
    LANGUAGE plpgsql AS $fn$
  DECLARE
    touched record;
    participant name;
    payload text;
  BEGIN
    FOR touched IN
      SELECT DISTINCT c.owner, c.zone, z.participants
        FROM changed c JOIN cloud.zones z ON z.owner = c.owner AND z.name = c.zone
    LOOP
      payload := json_build_object('owner', touched.owner, 'zone', touched.zone)::text;
      PERFORM pg_notify(cloud.channel(touched.owner, 'private'), payload);
      FOREACH participant IN ARRAY touched.participants LOOP
        PERFORM pg_notify(cloud.channel(participant, 'shared'), payload);
      END LOOP;
    END LOOP;
    RETURN NULL;
  END $fn$;
  CREATE TRIGGER records_inserted AFTER INSERT ON cloud.records
    REFERENCING NEW TABLE AS changed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.announce_changes();
  CREATE TRIGGER records_updated AFTER UPDATE ON cloud.records
    REFERENCING NEW TABLE AS changed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.announce_changes();
  CREATE TRIGGER records_deleted AFTER DELETE ON cloud.records
    REFERENCING OLD TABLE AS changed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.announce_changes();

  -- A zone deleted with its records: its listeners hear it once.
  CREATE FUNCTION cloud.announce_removal() RETURNS trigger
    LANGUAGE plpgsql AS $fn$
  DECLARE
    gone record;
    participant name;
    payload text;
  BEGIN
    FOR gone IN SELECT owner, name, participants FROM removed LOOP
      payload := json_build_object('owner', gone.owner, 'zone', gone.name)::text;
      PERFORM pg_notify(cloud.channel(gone.owner, 'private'), payload);
      FOREACH participant IN ARRAY gone.participants LOOP
        PERFORM pg_notify(cloud.channel(participant, 'shared'), payload);
      END LOOP;
    END LOOP;
    RETURN NULL;
  END $fn$;
  CREATE TRIGGER zones_removed AFTER DELETE ON cloud.zones
    REFERENCING OLD TABLE AS removed
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.announce_removal();

  CREATE TABLE cloud.schema_version (version integer NOT NULL);
  GRANT SELECT ON cloud.schema_version TO PUBLIC;
  INSERT INTO cloud.schema_version VALUES (1);
END
$setup$;

DO $upgrade$
BEGIN
  PERFORM pg_advisory_xact_lock(hashtext('cloud.schema'));
  IF (SELECT max(v.version) FROM cloud.schema_version v) >= 2 THEN
    RETURN;
  END IF;

  -- Version 2: push channels that no other role can name or be put on.
  -- A role's channels are named from a random token that only a session
  -- acting as that role is told (cloud.channel); who hears of a zone follows
  -- its shares alone; a notification carries nothing but its channel. The
  -- tokens and the audience of each zone live in tables no account may read
  -- or write: only the functions below (run as the schema's owner) do.
  CREATE TABLE cloud.listeners (
    account name PRIMARY KEY,
    token text NOT NULL DEFAULT replace(gen_random_uuid()::text, '-', '')
  );
  CREATE TABLE cloud.audience (
    owner name NOT NULL,
    zone text NOT NULL,
    participant name NOT NULL,
    PRIMARY KEY (owner, zone, participant)
  );
  REVOKE ALL ON cloud.listeners, cloud.audience FROM PUBLIC;
  ALTER TABLE cloud.shares NO FORCE ROW LEVEL SECURITY;
  INSERT INTO cloud.audience SELECT owner, zone, participant FROM cloud.shares;
  ALTER TABLE cloud.shares FORCE ROW LEVEL SECURITY;

  -- The zones' own list of participants, which their owners could write,
  -- gives way to the audience.
  DROP TRIGGER shares_added ON cloud.shares;
  DROP TRIGGER shares_removed ON cloud.shares;
  DROP FUNCTION cloud.keep_participants();
  DROP TRIGGER zones_removed ON cloud.zones;
  DROP FUNCTION cloud.announce_removal();
  ALTER TABLE cloud.zones DROP COLUMN participants;

  -- The channel `role` listens on for one of its databases ('private' or
  -- 'shared'): "cloud_" || database || "_" || its token, made on first use.
  -- Told only to a session that may act as `role`.
  CREATE OR REPLACE FUNCTION cloud.channel(role name, database text) RETURNS text
    LANGUAGE plpgsql VOLATILE STRICT SECURITY DEFINER
    SET search_path = pg_catalog, pg_temp AS $fn$
  DECLARE
    secret text;
  BEGIN
    IF NOT pg_has_role(session_user, role, 'MEMBER') THEN
      RAISE EXCEPTION 'only % may ask for the channels of %', role, role
        USING ERRCODE = 'insufficient_privilege';
    END IF;
    INSERT INTO cloud.listeners (account) VALUES (role) ON CONFLICT DO NOTHING;
    SELECT l.token INTO secret FROM cloud.listeners l WHERE l.account = role;
    RETURN 'cloud_' || database || '_' || secret;
  END $fn$;

  -- Each share adds its participant to the zone's audience, until it goes.
  CREATE FUNCTION cloud.keep_audience() RETURNS trigger
    LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $fn$
  BEGIN
    IF TG_OP <> 'INSERT' THEN
      DELETE FROM cloud.audience a USING gone g
       WHERE a.owner = g.owner AND a.zone = g.zone AND a.participant = g.participant;
    END IF;
    IF TG_OP <> 'DELETE' THEN
      INSERT INTO cloud.audience SELECT owner, zone, participant FROM came
        ON CONFLICT DO NOTHING;
    END IF;
    RETURN NULL;
  END $fn$;
  CREATE TRIGGER shares_added AFTER INSERT ON cloud.shares
    REFERENCING NEW TABLE AS came
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.keep_audience();
  CREATE TRIGGER shares_changed AFTER UPDATE ON cloud.shares
    REFERENCING OLD TABLE AS gone NEW TABLE AS came
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.keep_audience();
  CREATE TRIGGER shares_removed AFTER DELETE ON cloud.shares
    REFERENCING OLD TABLE AS gone
    FOR EACH STATEMENT EXECUTE FUNCTION cloud.keep_audience();

  -- One empty notification per listening role that hears of a zone the
  -- statement touched: the owner on its private channel, the audience on
  -- their shared ones.
  CREATE OR REPLACE FUNCTION cloud.announce_changes() RETURNS trigger
    LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $fn$
  BEGIN
    PERFORM pg_notify('cloud_private_' || l.token, '')
       FROM (SELECT DISTINCT owner FROM changed) c
       JOIN cloud.listeners l ON l.account = c.owner;
    PERFORM pg_notify('cloud_shared_' || l.token, '')
       FROM (SELECT DISTINCT owner, zone FROM changed) c
       JOIN cloud.audience a ON a.owner = c.owner AND a.zone = c.zone
       JOIN cloud.listeners l ON l.account = a.participant;
    RETURN NULL;
  END $fn$;

  -- A zone deleted with its records: its listeners hear of it before the
  -- cascade takes its shares, and so its audience, away.
  CREATE FUNCTION cloud.announce_removal() RETURNS trigger
    LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $fn$
  BEGIN
    PERFORM pg_notify('cloud_private_' || l.token, '')
       FROM cloud.listeners l WHERE l.account = OLD.owner;
    PERFORM pg_notify('cloud_shared_' || l.token, '')
       FROM cloud.audience a JOIN cloud.listeners l ON l.account = a.participant
      WHERE a.owner = OLD.owner AND a.zone = OLD.name;
    RETURN OLD;
  END $fn$;
  CREATE TRIGGER zones_removing BEFORE DELETE ON cloud.zones
    FOR EACH ROW EXECUTE FUNCTION cloud.announce_removal();

  -- The trigger functions run only as triggers of these tables.
  REVOKE EXECUTE ON FUNCTION cloud.keep_audience(), cloud.announce_changes(),
    cloud.announce_removal() FROM PUBLIC;

  UPDATE cloud.schema_version SET version = 2;
END
$upgrade$;
